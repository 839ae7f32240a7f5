#include "QENBundle.h"

#include <mutex>

#include "QENFoundation/QENAtomicReference.h"
#include "QENHost/QENHostSystem.h"

namespace {

std::shared_ptr<const QENBundle> runningExecutableBundle() {
  std::string path = QENHostSystem::runningExecutablePath();
  const std::string name = path.substr(path.rfind('/') + 1);
  return std::make_shared<const QENBundle>(
      std::move(path),
      QENBundle::InfoDictionary{{"CFBundleName", name}, {"CFBundleShortVersionString", "unknown"}});
}

QENAtomicReference<std::shared_ptr<const QENBundle>>& mainBundleSlot() {
  static auto* const slot =
      new QENAtomicReference<std::shared_ptr<const QENBundle>>(runningExecutableBundle());
  return *slot;
}

// Serialises the read-modify-write of the setters; readers only load the slot.
std::mutex& mainBundleWriteMutex() {
  static auto* const mutex = new std::mutex();
  return *mutex;
}

}  // namespace

std::shared_ptr<const QENBundle> QENBundle::mainBundle() {
  return mainBundleSlot().load();
}

void QENBundle::setMainBundleExecutablePath(std::string path) {
  const std::lock_guard guard(mainBundleWriteMutex());
  const auto current = mainBundle();
  mainBundleSlot().store(
      std::make_shared<const QENBundle>(std::move(path), current->infoDictionary_));
}

void QENBundle::setMainBundleInfoValue(std::string key, std::string value) {
  const std::lock_guard guard(mainBundleWriteMutex());
  const auto current = mainBundle();
  InfoDictionary information = current->infoDictionary_;
  information.insert_or_assign(std::move(key), std::move(value));
  mainBundleSlot().store(
      std::make_shared<const QENBundle>(current->executablePath_, std::move(information)));
}

std::optional<std::string> QENBundle::objectForInfoDictionaryKey(std::string_view key) const {
  const auto found = infoDictionary_.find(key);
  return found == infoDictionary_.end() ? std::nullopt : std::optional(found->second);
}

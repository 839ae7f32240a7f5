#include "QENBundle.h"

#include <unistd.h>

#include <climits>

#include "QENFoundation/QENAtomicReference.h"

namespace {

std::string runningExecutablePath() {
  char path[PATH_MAX];
  const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path - 1);
  return length > 0 ? std::string(path, static_cast<std::size_t>(length)) : std::string();
}

QENAtomicReference<std::shared_ptr<const QENBundle>>& mainBundleSlot() {
  static auto* const slot = new QENAtomicReference<std::shared_ptr<const QENBundle>>(
      std::make_shared<const QENBundle>(runningExecutablePath()));
  return *slot;
}

}  // namespace

std::shared_ptr<const QENBundle> QENBundle::mainBundle() {
  return mainBundleSlot().load();
}

void QENBundle::setMainBundleExecutablePath(std::string path) {
  mainBundleSlot().store(std::make_shared<const QENBundle>(std::move(path)));
}

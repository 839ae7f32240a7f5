#include "QENNotificationCenter.h"

#include <algorithm>
#include <utility>

QENNotificationCenter& QENNotificationCenter::defaultCenter() {
  static QENNotificationCenter* const center = new QENNotificationCenter();
  return *center;
}

void QENNotificationCenter::addObserver(const std::shared_ptr<const void>& observer,
                                        std::string_view name, const QENObject* sender,
                                        QENNotificationHandler handler) {
  auto registration = std::make_shared<const Registration>(
      Registration{observer, observer.get(), sender, std::move(handler)});
  const std::lock_guard guard(mutex_);
  auto found = registrationsByName_.find(name);
  if (found == registrationsByName_.end()) {
    found = registrationsByName_.emplace(std::string(name), nullptr).first;
  }
  auto replacement = found->second ? std::make_shared<RegistrationList>(*found->second)
                                   : std::make_shared<RegistrationList>();
  replacement->push_back(std::move(registration));
  found->second = std::move(replacement);
}

template <class ShouldRemove>
void QENNotificationCenter::removeRegistrationsIf(const ShouldRemove& shouldRemove,
                                                  std::optional<std::string_view> onlyName) {
  const std::lock_guard guard(mutex_);
  for (auto entry = registrationsByName_.begin(); entry != registrationsByName_.end();) {
    const RegistrationList& current = *entry->second;
    const bool nameMatches = !onlyName || entry->first == *onlyName;
    if (!nameMatches || std::none_of(current.begin(), current.end(), shouldRemove)) {
      ++entry;
      continue;
    }
    auto remaining = std::make_shared<RegistrationList>();
    std::remove_copy_if(current.begin(), current.end(), std::back_inserter(*remaining),
                        shouldRemove);
    if (remaining->empty()) {
      entry = registrationsByName_.erase(entry);
    } else {
      entry->second = std::move(remaining);
      ++entry;
    }
  }
}

namespace {
auto registeredBy(const void* observer) {
  return [observer](const auto& registration) { return registration->observerAddress == observer; };
}
}  // namespace

void QENNotificationCenter::removeObserver(const void* observer) {
  removeRegistrationsIf(registeredBy(observer), std::nullopt);
}

void QENNotificationCenter::removeObserver(const void* observer, std::string_view name) {
  removeRegistrationsIf(registeredBy(observer), name);
}

void QENNotificationCenter::postNotificationName(std::string_view name,
                                                 std::shared_ptr<QENObject> object,
                                                 QENUserInfo userInfo) {
  std::shared_ptr<const RegistrationList> registrations;
  {
    const std::lock_guard guard(mutex_);
    const auto found = registrationsByName_.find(name);
    if (found == registrationsByName_.end()) {
      return;
    }
    registrations = found->second;
  }
  const QENNotification notification{name, std::move(object), std::move(userInfo)};
  bool metDestroyedObserver = false;
  for (const auto& registration : *registrations) {
    if (registration->sender != nullptr && registration->sender != notification.object.get()) {
      continue;
    }
    // Holding the observer for the call keeps its destruction from starting under the call.
    if (const auto observer = registration->observer.lock()) {
      registration->handler(notification);
    } else {
      metDestroyedObserver = true;
    }
  }
  if (metDestroyedObserver) {
    // Observers that never removed themselves: free their registrations now.
    removeRegistrationsIf([](const auto& registration) { return registration->observer.expired(); },
                          name);
  }
}

std::size_t QENNotificationCenter::registrationCount(std::string_view name) {
  const std::lock_guard guard(mutex_);
  const auto found = registrationsByName_.find(name);
  return found == registrationsByName_.end() ? 0 : found->second->size();
}

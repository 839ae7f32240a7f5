#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "QENNotification.h"

// A publish-subscribe centre with named registrations, delivered synchronously on the posting
// thread in registration order.
//
// Lifetime: an observer registers itself as a std::shared_ptr and the centre keeps only a weak
// reference. Before each call the centre turns that reference into a strong one, so an observer
// whose destruction has begun (on any thread) is never called, and one being called cannot be
// destroyed under the call. The handler may therefore refer to the observer without owning it.
// Registrations of a destroyed observer are never called again; removeObserver (typically from
// the observer's destructor) frees them, and so does the next post of their name.
//
// No lock of the centre is held while handlers run: a handler may post, register or remove.
class QENNotificationCenter {
 public:
  // The process-wide centre (never destroyed).
  static QENNotificationCenter& defaultCenter();

  QENNotificationCenter() = default;
  QENNotificationCenter(const QENNotificationCenter&) = delete;
  QENNotificationCenter& operator=(const QENNotificationCenter&) = delete;

  // Calls `handler` for every notification named `name` whose object is `sender`, or for every
  // one of that name when `sender` is null. Registering twice delivers twice.
  void addObserver(const std::shared_ptr<const void>& observer, std::string_view name,
                   const QENObject* sender, QENNotificationHandler handler);

  // Removes every registration of the observer, or every one for the given name. The observer
  // is identified by address, as registered (the shared_ptr's get()).
  void removeObserver(const void* observer);
  void removeObserver(const void* observer, std::string_view name);

  void postNotificationName(std::string_view name, std::shared_ptr<QENObject> object = nullptr,
                            QENUserInfo userInfo = {});

  // Registrations held for `name`, those of destroyed observers not yet freed included.
  std::size_t registrationCount(std::string_view name);

 private:
  struct Registration {
    std::weak_ptr<const void> observer;
    const void* observerAddress;
    const QENObject* sender;
    QENNotificationHandler handler;
  };
  using RegistrationList = std::vector<std::shared_ptr<const Registration>>;

  struct NameHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view name) const noexcept {
      return std::hash<std::string_view>{}(name);
    }
  };

  template <class ShouldRemove>
  void removeRegistrationsIf(const ShouldRemove& shouldRemove,
                             std::optional<std::string_view> onlyName);

  std::mutex mutex_;
  // Each list is replaced, never changed in place, so a post iterates its own snapshot.
  std::unordered_map<std::string, std::shared_ptr<const RegistrationList>, NameHash,
                     std::equal_to<>>
      registrationsByName_;
};

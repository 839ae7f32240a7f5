#pragma once

#include <atomic>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

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
// No lock of the centre is held while handlers run: a handler may post, register or remove. A
// post reaches the registrations made before it began, except those removed before their turn.
// Registering and removing cost the same however many observers a name has; only a post, which
// calls each of them, grows with their number.
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
    Registration(const std::shared_ptr<const void>& observer, const QENObject* sender,
                 QENNotificationHandler handler)
        : observer(observer),
          observerAddress(observer.get()),
          sender(sender),
          handler(std::move(handler)) {}

    const std::weak_ptr<const void> observer;
    const void* const observerAddress;
    const QENObject* const sender;
    const QENNotificationHandler handler;
    // Taken out while a post was under way: no longer called, freed when the posts end.
    std::atomic<bool> removed{false};
  };
  using RegistrationPosition = std::list<Registration>::iterator;

  // One name's registrations in registration order. While a post walks them, nothing is erased:
  // a removal only marks its registration, so the walk's positions stay valid. An entry stays once
  // made, emptied or not: names are few and fixed, and a name whose only observer comes and goes
  // (every metric's will-start listener) would otherwise be made anew each time.
  struct NameEntry {
    std::list<Registration> registrations;
    std::size_t held = 0;  // registrations not marked removed
    int postsUnderWay = 0;
    bool holdsRemoved = false;
  };

  struct ObserverRegistration {
    NameEntry* entry;
    RegistrationPosition position;
  };

  struct NameHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view name) const noexcept {
      return std::hash<std::string_view>{}(name);
    }
  };

  class PostWalk;

  void removeRegistrations(const void* observer, const NameEntry* onlyEntry);
  void detach(NameEntry& entry, RegistrationPosition position);
  void forgetObserverRegistration(const void* observer, RegistrationPosition position);
  void freeRemovedOnceIdle(NameEntry& entry, bool metDestroyedObserver);

  std::mutex mutex_;
  std::unordered_map<std::string, NameEntry, NameHash, std::equal_to<>> registrationsByName_;
  // Where each observer's registrations are, so that removing them never walks a name's list.
  std::unordered_multimap<const void*, ObserverRegistration> registrationsByObserver_;
};

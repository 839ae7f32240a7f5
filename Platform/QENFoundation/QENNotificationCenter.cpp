#include "QENNotificationCenter.h"

#include <array>
#include <iterator>
#include <optional>
#include <utility>

QENNotificationCenter& QENNotificationCenter::defaultCenter() {
  static QENNotificationCenter* const center = new QENNotificationCenter();
  return *center;
}

void QENNotificationCenter::addObserver(const std::shared_ptr<const void>& observer,
                                        std::string_view name, const QENObject* sender,
                                        QENNotificationHandler handler) {
  const std::lock_guard guard(mutex_);
  auto found = registrationsByName_.find(name);
  if (found == registrationsByName_.end()) {
    found = registrationsByName_.try_emplace(std::string(name)).first;
  }
  NameEntry& entry = found->second;
  entry.registrations.emplace_back(observer, sender, std::move(handler));
  ++entry.held;
  registrationsByObserver_.emplace(
      observer.get(), ObserverRegistration{&entry, std::prev(entry.registrations.end())});
}

void QENNotificationCenter::removeObserver(const void* observer) {
  const std::lock_guard guard(mutex_);
  removeRegistrations(observer, nullptr);
}

void QENNotificationCenter::removeObserver(const void* observer, std::string_view name) {
  const std::lock_guard guard(mutex_);
  const auto found = registrationsByName_.find(name);
  if (found != registrationsByName_.end()) {
    removeRegistrations(observer, &found->second);
  }
}

// Every registration of `observer`, or only those in `onlyEntry` when it is given.
void QENNotificationCenter::removeRegistrations(const void* observer, const NameEntry* onlyEntry) {
  auto [position, end] = registrationsByObserver_.equal_range(observer);
  while (position != end) {
    const ObserverRegistration registration = position->second;
    if (onlyEntry != nullptr && registration.entry != onlyEntry) {
      ++position;
      continue;
    }
    position = registrationsByObserver_.erase(position);
    detach(*registration.entry, registration.position);
  }
}

void QENNotificationCenter::detach(NameEntry& entry, RegistrationPosition position) {
  if (position->removed.load(std::memory_order_relaxed)) {
    return;
  }
  --entry.held;
  if (entry.postsUnderWay > 0) {
    position->removed.store(true, std::memory_order_relaxed);
    entry.holdsRemoved = true;
    return;
  }
  entry.registrations.erase(position);
}

void QENNotificationCenter::forgetObserverRegistration(const void* observer,
                                                       RegistrationPosition position) {
  auto [found, end] = registrationsByObserver_.equal_range(observer);
  while (found != end && found->second.position != position) {
    ++found;
  }
  if (found != end) {
    registrationsByObserver_.erase(found);
  }
}

// Frees, once no post walks the entry, the registrations removed meanwhile and, when a post met
// one, those of destroyed observers.
void QENNotificationCenter::freeRemovedOnceIdle(NameEntry& entry, bool metDestroyedObserver) {
  if (entry.postsUnderWay > 0 || !(entry.holdsRemoved || metDestroyedObserver)) {
    return;
  }
  entry.holdsRemoved = false;
  for (auto position = entry.registrations.begin(); position != entry.registrations.end();) {
    const auto current = position++;
    const bool removed = current->removed.load(std::memory_order_relaxed);
    if (!removed && current->observer.expired()) {
      --entry.held;
      forgetObserverRegistration(current->observerAddress, current);
    } else if (!removed) {
      continue;
    }
    entry.registrations.erase(current);
  }
}

// One post's walk over a name's registrations as they stood when it began. It takes the mutex for
// each batch of registrations (the first under the post's own lookup) and calls them without it;
// the entry keeps every position the walk may still visit until the walk ends.
class QENNotificationCenter::PostWalk {
 public:
  // With the centre's mutex held.
  PostWalk(QENNotificationCenter& center, NameEntry& entry)
      : center_(center),
        entry_(entry),
        next_(entry.registrations.begin()),
        last_(std::prev(entry.registrations.end())) {
    ++entry_.postsUnderWay;
  }
  PostWalk(const PostWalk&) = delete;
  PostWalk& operator=(const PostWalk&) = delete;

  ~PostWalk() {
    const std::lock_guard guard(center_.mutex_);
    --entry_.postsUnderWay;
    center_.freeRemovedOnceIdle(entry_, metDestroyedObserver_);
  }

  // With the centre's mutex held.
  void takeBatch() {
    batchSize_ = 0;
    while (batchSize_ < batch_.size() && !finished_) {
      if (!next_->removed.load(std::memory_order_relaxed)) {
        batch_[batchSize_++] = &*next_;
      }
      finished_ = next_ == last_;
      ++next_;
    }
  }

  void deliver(const QENNotification& notification) {
    callBatch(notification);
    while (!finished_) {
      {
        const std::lock_guard guard(center_.mutex_);
        takeBatch();
      }
      callBatch(notification);
    }
  }

 private:
  void callBatch(const QENNotification& notification) {
    for (std::size_t index = 0; index < batchSize_; ++index) {
      call(*batch_[index], notification);
    }
  }

  void call(const Registration& registration, const QENNotification& notification) {
    if (registration.sender != nullptr && registration.sender != notification.object.get()) {
      return;
    }
    // Removed since the batch was taken (an earlier handler may have done it).
    if (registration.removed.load(std::memory_order_relaxed)) {
      return;
    }
    // Holding the observer for the call keeps its destruction from starting under the call.
    if (const auto observer = registration.observer.lock()) {
      registration.handler(notification);
    } else {
      metDestroyedObserver_ = true;
    }
  }

  QENNotificationCenter& center_;
  NameEntry& entry_;
  RegistrationPosition next_;
  const RegistrationPosition last_;
  std::array<const Registration*, 16> batch_;
  std::size_t batchSize_ = 0;
  bool finished_ = false;
  bool metDestroyedObserver_ = false;
};

void QENNotificationCenter::postNotificationName(std::string_view name,
                                                 std::shared_ptr<QENObject> object,
                                                 QENUserInfo userInfo) {
  std::optional<PostWalk> walk;
  {
    const std::lock_guard guard(mutex_);
    const auto found = registrationsByName_.find(name);
    if (found == registrationsByName_.end() || found->second.registrations.empty()) {
      return;
    }
    walk.emplace(*this, found->second);
    walk->takeBatch();
  }
  walk->deliver(QENNotification{name, std::move(object), std::move(userInfo)});
}

std::size_t QENNotificationCenter::registrationCount(std::string_view name) {
  const std::lock_guard guard(mutex_);
  const auto found = registrationsByName_.find(name);
  return found == registrationsByName_.end() ? 0 : found->second.held;
}

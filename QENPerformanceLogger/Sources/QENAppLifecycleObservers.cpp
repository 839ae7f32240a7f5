#include "QENAppLifecycleObservers.h"

#include <iterator>
#include <string_view>

#include "QENApplication/QENApplicationLifecycle.h"
#include "QENFoundation/QENNotificationCenter.h"
#include "QENPerformanceMetric.h"

QENAppLifecycleObservers& QENAppLifecycleObservers::shared() {
  static auto* const observers = new QENAppLifecycleObservers();  // never destroyed: see below
  return *observers;
}

// Registered for the life of the process, under an observer that is never released: the
// registrations are the process's, not any metric's.
QENAppLifecycleObservers::QENAppLifecycleObservers() {
  static const auto* const observer = new std::shared_ptr<const void>(std::make_shared<int>(0));
  const std::pair<std::string_view, Handler> registrations[] = {
      {UIApplicationDidEnterBackgroundNotification, &QENPerformanceMetric::appDidEnterBackground},
      {UIApplicationWillResignActiveNotification, &QENPerformanceMetric::appWillResignActive},
      {UIApplicationWillEnterForegroundNotification, &QENPerformanceMetric::appWillEnterForeground},
      {UIApplicationDidBecomeActiveNotification, &QENPerformanceMetric::appDidBecomeActive},
  };
  for (const auto& [name, handler] : registrations) {
    QENNotificationCenter::defaultCenter().addObserver(
        *observer, name, nullptr, [this, handler = handler](const QENNotification& notification) {
          fanOut(handler, notification);
        });
  }
}

void QENAppLifecycleObservers::add(const std::shared_ptr<QENPerformanceMetric>& metric) {
  const std::lock_guard guard(mutex_);
  entries_.push_back({metric.get(), metric});
  positionsByMetric_.emplace(metric.get(), std::prev(entries_.end()));
}

void QENAppLifecycleObservers::remove(const QENPerformanceMetric* metric) {
  const std::lock_guard guard(mutex_);
  const auto [first, end] = positionsByMetric_.equal_range(metric);
  for (auto found = first; found != end; ++found) {
    entries_.erase(found->second);
  }
  positionsByMetric_.erase(first, end);
}

std::size_t QENAppLifecycleObservers::count() const {
  const std::lock_guard guard(mutex_);
  return entries_.size();
}

// The metrics are called outside the mutex, so that one may add or remove entries meanwhile.
void QENAppLifecycleObservers::fanOut(Handler handler, const QENNotification& notification) const {
  std::vector<std::shared_ptr<QENPerformanceMetric>> live;
  {
    const std::lock_guard guard(mutex_);
    live.reserve(entries_.size());  // a notification reaches them all anyway
    for (const Entry& entry : entries_) {
      if (auto metric = entry.metric.lock()) {
        live.push_back(std::move(metric));
      }
    }
  }
  for (const auto& metric : live) {
    (metric.get()->*handler)(notification);
  }
}

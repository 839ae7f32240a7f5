#include "QENHangMonitor.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

#include "QENApplication/QENApplicationLifecycle.h"
#include "QENAssert.h"
#include "QENFoundation/QENMonotonicTime.h"
#include "QENFoundation/QENNotificationCenter.h"

QENHangMonitor& QENHangMonitor::shared() {
  static auto* const monitor = new QENHangMonitor();  // never destroyed: metrics outlive statics
  return *monitor;
}

QENHangMonitor::QENHangMonitor() {
  observeApplicationState();
}

// Registered for the life of the process, under an observer that is never released.
void QENHangMonitor::observeApplicationState() {
  static const auto* const observer = new std::shared_ptr<const void>(std::make_shared<int>(0));
  auto& center = QENNotificationCenter::defaultCenter();
  center.addObserver(*observer, UIApplicationDidEnterBackgroundNotification, nullptr,
                     [this](const QENNotification&) {
                       std::unique_lock lock(mutex_);
                       if (detector_) {
                         ended(lock, detector_->enterBackground(QENMonotonicTimeGetCurrent()));
                       }
                     });
  center.addObserver(*observer, UIApplicationWillEnterForegroundNotification, nullptr,
                     [this](const QENNotification&) {
                       const std::lock_guard guard(mutex_);
                       if (detector_) {
                         detector_->enterForeground(QENMonotonicTimeGetCurrent());
                       }
                     });
}

void QENHangMonitor::start(Options options) {
  const bool valid = options.threshold >= QENHangDetector::kMinimumThreshold;
  QENParameterAssert(valid, "threshold >= 0.1", "-[QENHangMonitor startWithOptions:]");
  if (!valid) {
    options.threshold = std::isnan(options.threshold) ? QENHangDetector::kDefaultThreshold
                                                      : QENHangDetector::kMinimumThreshold;
  }
  std::thread previous;
  Options released;  // the host's callbacks, let go of outside the lock
  {
    const std::lock_guard guard(mutex_);
    ++generation_;  // the thread of an earlier start, or of one racing this, ends
    previous = std::move(checker_);
    forgetHangs();
    detector_.emplace(options.threshold, options.threshold / 4, QENMonotonicTimeGetCurrent());
    released = std::exchange(options_, std::move(options));
    watching_.store(true, std::memory_order_relaxed);
    if (options_.startsThread) {
      checker_ = std::thread([this, generation = generation_] { runChecks(generation); });
    }
  }
  stopping_.notify_all();
  end(std::move(previous));
}

void QENHangMonitor::stop() {
  std::thread previous;
  Options released;
  {
    const std::lock_guard guard(mutex_);
    ++generation_;
    previous = std::move(checker_);
    forgetHangs();
    detector_.reset();
    released = std::exchange(options_, Options{});
    watching_.store(false, std::memory_order_relaxed);
  }
  stopping_.notify_all();
  end(std::move(previous));
}

void QENHangMonitor::forgetHangs() {
  ongoing_.reset();
  kept_.clear();
}

void QENHangMonitor::end(std::thread checker) {
  if (checker.joinable()) {
    // Stopped from its own observer, the thread ends by itself once the check returns.
    checker.get_id() == std::this_thread::get_id() ? checker.detach() : checker.join();
  }
}

void QENHangMonitor::setObserver(std::function<void(const QENRecordedHang&, bool)> observer) {
  std::unique_lock lock(mutex_);
  auto replaced = std::exchange(options_.observer, std::move(observer));
  lock.unlock();  // the host's callback goes outside the lock
}

void QENHangMonitor::heartbeat() {
  heartbeat(QENMonotonicTimeGetCurrent());
}

void QENHangMonitor::heartbeat(double now) {
  std::unique_lock lock(mutex_);
  if (detector_) {
    ended(lock, detector_->heartbeat(now));
  }
}

void QENHangMonitor::runChecks(std::uint64_t generation) {
  std::unique_lock lock(mutex_);
  const std::chrono::duration<double> interval(options_.threshold / 4);
  while (!stopping_.wait_for(lock, interval, [&] { return generation_ != generation; })) {
    lock.unlock();
    check(QENMonotonicTimeGetCurrent());
    lock.lock();
  }
}

void QENHangMonitor::check(double now) {
  std::unique_lock lock(mutex_);
  if (!detector_) {
    return;
  }
  const auto [began, ended] = detector_->check(now);
  if (ended) {
    this->ended(lock, ended);
    return;
  }
  if (began) {
    const auto capture = options_.captureMainThreadStack;
    lock.unlock();
    std::string stack = capture ? capture() : std::string();  // the host's code, unlocked
    lock.lock();
    if (detector_ == std::nullopt) {
      return;  // stopped meanwhile
    }
    ongoing_ = QENRecordedHang{*began, std::move(stack)};
  }
  if (ongoing_) {
    ongoing_->end = std::max(ongoing_->end, now);
    const auto observer = options_.observer;
    const QENRecordedHang hang = *ongoing_;
    lock.unlock();
    if (observer) {
      observer(hang, true);
    }
  }
}

void QENHangMonitor::ended(std::unique_lock<std::mutex>& lock, std::optional<QENHang> hang) {
  if (!hang || !ongoing_) {
    return;
  }
  QENRecordedHang recorded{*hang, std::move(ongoing_->mainThreadStack)};
  ongoing_.reset();
  kept_.push_back(recorded);
  if (kept_.size() > kKeptHangs) {
    kept_.pop_front();
  }
  const auto observer = options_.observer;
  lock.unlock();
  if (observer) {
    observer(recorded, false);
  }
}

std::vector<QENRecordedHang> QENHangMonitor::hangsDuring(double startTime, double stopTime) const {
  const std::lock_guard guard(mutex_);
  std::vector<QENRecordedHang> during;
  const auto cutInto = [&](const QENRecordedHang& hang) {
    if (hang.start < stopTime && hang.end > startTime) {
      QENRecordedHang cut = hang;
      cut.start = std::max(hang.start, startTime);
      cut.end = std::min(hang.end, stopTime);
      during.push_back(std::move(cut));
    }
  };
  std::for_each(kept_.begin(), kept_.end(), cutInto);
  if (ongoing_) {
    cutInto(*ongoing_);
  }
  return during;
}

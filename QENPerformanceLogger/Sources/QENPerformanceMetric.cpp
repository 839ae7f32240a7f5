#include "QENPerformanceMetric.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <mutex>
#include <unordered_set>
#include <utility>

#include "BinaryAnnotation+QENAdditions.h"
#include "QENAssert.h"
#include "QENCommandLineOptions/QENCommandLineOptions.h"
#include "QENDeepTreeTrampoline.h"
#include "QENFoundation/QENCurrentExceptionDescription.h"
#include "QENFoundation/QENFormat.h"
#include "QENFoundation/QENGlobalQueue.h"
#include "QENFoundation/QENIndentation.h"
#include "QENFoundation/QENLockGuard.h"
#include "QENFoundation/QENMonotonicTime.h"
#include "QENFoundation/QENNotificationCenter.h"
#include "QENFoundation/QENRandom.h"
#include "QENHangMonitor.h"

namespace {

struct RandomIdentifiers {
  std::int64_t traceId;
  std::int64_t spanId;
};

// Both ids in one draw: a draw costs about as much for 16 bytes as for 8.
RandomIdentifiers drawIdentifiers() {
  std::int64_t identifiers[2];
  QENFoundation::arc4random_buf(identifiers, sizeof identifiers);
  return {identifiers[0], identifiers[1]};
}

// A callback that throws is the host's fault, but it runs where the host cannot catch it: it is
// reported, and the callbacks after it still run.
void runCompletionBlock(const QENPerformanceMetric::CompletionBlock& block, bool valid) {
#if defined(__cpp_exceptions)
  try {
    block(valid);
  } catch (...) {
    QENAssertionFailure("-[QENPerformanceMetric addCompletionBlock:]",
                        "A completion callback threw: %s",
                        QENCurrentExceptionDescription().c_str());
  }
#else
  block(valid);
#endif
}

void dispatchCompletionBlocks(
    std::shared_ptr<const QENPerformanceMetric::CompletionBlockList> blocks, bool valid) {
  QENGlobalQueue::dispatchAsync([blocks = std::move(blocks), valid] {
    for (const QENPerformanceMetric::CompletionBlock& block : *blocks) {
      runCompletionBlock(block, valid);
    }
  });
}

constexpr const char* kPropertyLockLabel = "com.qen.performance_logger.metric.property_lock";
// Start and stop times this far from now are reported (and used anyway). The check compares with
// the coarse clock: a few milliseconds cannot matter against an hour, and the precise clock would
// double what a start or stop of the current time costs.
constexpr double kMaximumDistanceFromNow = 3600;

double drawRandomUploadFraction() {
  return QENFoundation::arc4random_uniform(100) / 100.0;
}

constexpr const char* kClassPropertyLockLabel =
    "com.qen.performance_logger.metric.class_property_lock";

// Serialises every change of a child list and of a parent link, so that the test for a cycle and
// the append that follows it see one tree: two threads adding each metric under the other cannot
// both pass. Taken last (addChildMetric already holds the parent's lock) and held for no wait.
std::mutex& treeStructureMutex() {
  static auto* const mutex = new std::mutex();
  return *mutex;
}

}  // namespace

QENPerformanceMetric::QENPerformanceMetric(ConstructionKey, std::optional<std::string> name,
                                           double uploadFraction, bool shouldObserveMetricWillStart,
                                           bool shouldPostMetricWillStart)
    : propertyLock_(kPropertyLockLabel),
      name_(std::move(name)),
      uploadFraction_(uploadFraction),
      shouldObserveMetricWillStart_(shouldObserveMetricWillStart),
      shouldPostMetricWillStart_(shouldPostMetricWillStart) {
  const RandomIdentifiers identifiers = drawIdentifiers();
  traceId_ = identifiers.traceId;
  spanId_.store(identifiers.spanId, std::memory_order_relaxed);
}

QENPerformanceMetric::~QENPerformanceMetric() {
  if (!childMetrics_.empty()) {  // the last owner of a deep chain frees it without recursing
    QENDeepTreeTrampoline::run(
        [children = std::move(childMetrics_)]() mutable { children.clear(); });
  }
  if (shouldObserveMetricWillStart()) {
    stopObservingMetricWillStartNotificationsIfNeeded();
  }
  if (observesAppLifecycle_.load(std::memory_order_relaxed)) {
    removeAppLifecycleNotificationObservation();
  }
}

const void* QENPerformanceMetric::objectAs(const QENObjectClassKey& key) const {
  return &key == &kObjectClassKey ? this : QENObject::objectAs(key);
}

void QENPerformanceMetric::didFinishConstruction() {
  if (shouldObserveMetricWillStart()) {
    startObservingMetricWillStartNotificationsIfNeeded();
  }
}

// MARK: - Lifecycle

void QENPerformanceMetric::startMetric() {
  startMetricWithTime(QENMonotonicTimeGetCurrent());
}

void QENPerformanceMetric::stopMetric() {
  stopMetricWithTime(QENMonotonicTimeGetCurrent());
}

void QENPerformanceMetric::startMetricWithTime(double startTime) {
  QENParameterAssert(std::fabs(startTime - QENMonotonicTimeGetCoarse()) < kMaximumDistanceFromNow,
                     "ABS(startTime - QENMonotonicTimeGetCurrent()) < 3600",
                     "-[QENPerformanceMetric startMetricWithTime:]");
  if (std::isnan(startTime)) {
    return;  // reported above; a start that compares with nothing would never let it finish
  }
  if (shouldPostMetricWillStart()) {
    postMetricWillStart();
  }
  const QENLockGuard guard(propertyLock_);
  if (startTime_ == kUnsetTime || startTime_ == startTime) {
    startTime_ = startTime;
    if (framesAtStart_ == nullptr && QENFrameMonitor::shared().isReporting()) {
      framesAtStart_ = std::make_unique<QENFrameTally>(QENFrameMonitor::shared().tally());
    }
  }
}

void QENPerformanceMetric::stopMetricWithTime(double stopTime) {
  QENParameterAssert(std::fabs(stopTime - QENMonotonicTimeGetCoarse()) < kMaximumDistanceFromNow,
                     "ABS(stopTime - QENMonotonicTimeGetCurrent()) < 3600",
                     "-[QENPerformanceMetric stopMetricWithTime:]");
  // Taken out under the lock, released or run after it.
  std::shared_ptr<const CompletionBlockList> completions;
  std::unique_ptr<Deciders> clearedDeciders;
  std::unique_ptr<QENFrameTally> framesAtStart;
  double startedAt = 0;
  double stoppedAt = 0;
  bool valid = false;
  {
    const QENLockGuard guard(propertyLock_);
    QENAssert(!(stopTime < startTime_), "-[QENPerformanceMetric stopMetricWithTime:]",
              "Metric stop time must be greater than or equal to start time");
    if (startTime_ <= stopTime_) {
      return;  // never started, already stopped, or invalidated after starting
    }
    stopTime_ = startTime_ <= stopTime ? stopTime : startTime_;
    startedAt = startTime_;
    stoppedAt = stopTime_;
    framesAtStart = std::move(framesAtStart_);
    // Children are stopped at the current clock reading, under this metric's lock. Indexing
    // keeps the walk valid should a child's stop add to this list on this thread.
    for (std::size_t index = 0; index < childMetrics_.size(); ++index) {
      const std::shared_ptr<QENPerformanceMetric> child = childMetrics_[index];
      if (!child->isFinished()) {
        QENDeepTreeTrampoline::run([child] { child->stopMetric(); });
      }
    }
    completions = std::exchange(completionBlocks_, nullptr);
    valid = _locked_isValid();
    clearedDeciders = std::move(deciders_);
  }
  if (QENFrameMonitor::shared().isReporting()) {  // before the completions, which may export
    // With no tally, no frame had been reported at the start: every one since is the metric's.
    tagFramesSeen(framesAtStart ? *framesAtStart : QENFrameTally{}, startedAt, stoppedAt);
  }
  if (QENHangMonitor::shared().isWatching() && parentMetric() == nullptr) {
    addHangsSeen(startedAt, stoppedAt);
  }
  if (completions) {
    dispatchCompletionBlocks(std::move(completions), valid);
  }
}

void QENPerformanceMetric::tagFramesSeen(const QENFrameTally& atStart, double startTime,
                                         double stopTime) {
  const QENFrameStatistics seen =
      QENFrameMonitor::shared().statisticsSince(atStart, startTime, stopTime);
  if (seen.total == 0) {
    return;
  }
  using Vocabulary = QENThrift::BinaryAnnotationQENAdditions;
  const auto count = [](std::uint64_t value) {
    return static_cast<std::int64_t>(std::min<std::uint64_t>(value, INT64_MAX));
  };
  addBinaryAnnotations(std::array{
      Vocabulary::annotationWithKeyInt64("frames.total", count(seen.total)),
      Vocabulary::annotationWithKeyInt64("frames.slow", count(seen.slow)),
      Vocabulary::annotationWithKeyInt64("frames.frozen", count(seen.frozen)),
      Vocabulary::annotationWithKeyInt64("frames.delay_ms", std::llround(seen.delay * 1000))});
}

void QENPerformanceMetric::addHangsSeen(double startTime, double stopTime) {
  using Vocabulary = QENThrift::BinaryAnnotationQENAdditions;
  for (const QENRecordedHang& hang : QENHangMonitor::shared().hangsDuring(startTime, stopTime)) {
    auto span = initLeafMetricWithName("app.hang", hang.start, hang.end);
    if (!hang.mainThreadStack.empty()) {
      span->addBinaryAnnotation(
          Vocabulary::annotationWithKeyString("app.hang.stack", hang.mainThreadStack));
    }
    addChildMetric(std::move(span));
  }
}

void QENPerformanceMetric::invalidate() {
  invalidateWithReason(QENPerformanceMetricStopReasonUnknown);
}

void QENPerformanceMetric::invalidateWithReason(QENPerformanceMetricStopReason reason) {
  QENAssert(reason != QENPerformanceMetricStopReasonDefault,
            "-[QENPerformanceMetric invalidateWithReason:]",
            "QENPerformanceMetricStopReasonDefault should only be used to represent valid metrics");
  MetricList children;
  std::shared_ptr<const CompletionBlockList> completions;
  std::unique_ptr<Deciders> clearedDeciders;
  {
    const QENLockGuard guard(propertyLock_);
    invalidateReason_ = reason;
    if (stopTime_ == kUnsetTime) {
      stopTime_ = QENMonotonicTimeGetCurrent();
    }
    children = childMetrics_;
    completions = std::exchange(completionBlocks_, nullptr);
    clearedDeciders = std::move(deciders_);
  }
  for (const auto& child : children) {
    QENDeepTreeTrampoline::run([child, reason] { child->invalidateWithReason(reason); });
  }
  if (completions) {
    dispatchCompletionBlocks(std::move(completions), false);
  }
}

void QENPerformanceMetric::invalidateWithReason(QENPerformanceMetricStopReason reason,
                                                std::int64_t invalidatingQenLogEventType) {
  {
    const QENLockGuard guard(propertyLock_);
    setInvalidatingQenLogEventType(invalidatingQenLogEventType);
  }
  invalidateWithReason(reason);
}

void QENPerformanceMetric::invalidateWithReasonAndQENLogEventType(
    QENPerformanceMetricStopReason reason, std::int64_t invalidatingQenLogEventType) {
  setInvalidatingQenLogEventType(invalidatingQenLogEventType);
  invalidateWithReason(reason);
}

void QENPerformanceMetric::addCompletionBlock(CompletionBlock block) {
  if (!block) {
    QENAssertionFailure("-[QENPerformanceMetric addCompletionBlock:]",
                        "The following expression must not evaluate to nil: %s", "block");
    return;
  }
  std::shared_ptr<const CompletionBlockList> replaced;
  bool valid = false;
  {
    const QENLockGuard guard(propertyLock_);
    if (!_locked_isFinished()) {
      auto blocks = completionBlocks_ ? std::make_shared<CompletionBlockList>(*completionBlocks_)
                                      : std::make_shared<CompletionBlockList>();
      blocks->push_back(std::move(block));
      replaced = std::exchange(completionBlocks_, std::move(blocks));
      return;
    }
    valid = _locked_isValid();
  }
  block(valid);
}

// MARK: - Queries

bool QENPerformanceMetric::isStarted() const {
  const QENLockGuard guard(propertyLock_);
  return startTime_ != kUnsetTime;
}

bool QENPerformanceMetric::isFinished() const {
  const QENLockGuard guard(propertyLock_);
  return _locked_isFinished();
}

bool QENPerformanceMetric::isInFlight() const {
  const QENLockGuard guard(propertyLock_);
  return startTime_ != kUnsetTime && stopTime_ == kUnsetTime;
}

bool QENPerformanceMetric::isValid() const {
  const QENLockGuard guard(propertyLock_);
  return _locked_isValid();
}

bool QENPerformanceMetric::_locked_isFinished() const {
  return stopTime_ != kUnsetTime && startTime_ != kUnsetTime && startTime_ <= stopTime_;
}

bool QENPerformanceMetric::_locked_isValid() const {
  return invalidateReason_ == QENPerformanceMetricStopReasonDefault;
}

double QENPerformanceMetric::metricTime() const {
  double start = kUnsetTime;
  double stop = kUnsetTime;
  {
    const QENLockGuard guard(propertyLock_);
    start = startTime_;
    stop = stopTime_;
  }
  return (stop == kUnsetTime ? QENMonotonicTimeGetCurrent() : stop) - start;
}

double QENPerformanceMetric::randomUploadFraction() const noexcept {
  double fraction = randomUploadFraction_.load(std::memory_order_relaxed);
  if (fraction == kNotDrawn) {
    // Threads that race here draw once each; the first stored draw is the metric's.
    const double draw = drawRandomUploadFraction();
    fraction = kNotDrawn;
    if (randomUploadFraction_.compare_exchange_strong(fraction, draw, std::memory_order_relaxed)) {
      fraction = draw;
    }
  }
  return fraction;
}

bool QENPerformanceMetric::shouldUpload() const {
  static const bool performanceTestMode = QENCommandLineOptions::isPerformanceTestMode();
  const double draw = randomUploadFraction();  // drawn outside the lock
  const QENLockGuard guard(propertyLock_);
  const bool sampled = performanceTestMode || (uploadFraction_ != 0.0 && draw <= uploadFraction_);
  return sampled && invalidateReason_ != QENPerformanceMetricStopReasonUnknown;
}

// MARK: - Tree

void QENPerformanceMetric::addChildMetric(std::shared_ptr<QENPerformanceMetric> child) {
  if (child == nullptr) {
    QENAssertionFailure("-[QENPerformanceMetric addChildMetric:]",
                        "Metric should not be nil unless disabled");
    return;
  }
  // This metric's lock, then the tree mutex, under which no lock is ever awaited: a stop that
  // holds a parent's lock and adds a child somewhere cannot wait on a thread that waits on it.
  const QENLockGuard guard(propertyLock_);
  const std::lock_guard structureGuard(treeStructureMutex());
  if (wouldCloseACycle(*child)) {
    QENAssertionFailure("-[QENPerformanceMetric addChildMetric:]",
                        "A metric cannot become a child of itself or of one of its descendants");
    return;
  }
  const bool hadParent = !child->parentMetric_.load().expired();
  QENAssert(!hadParent, "-[QENPerformanceMetric addChildMetric:]",
            "Child metric should not already have a parent.");
  child->listedIrregularly_ = child->listedIrregularly_ || hadParent;
  child->parentMetric_.store(weak_from_this());
  childMetrics_.push_back(std::move(child));
}

// A cycle would close if `child` were this metric or one this metric is listed under, directly or
// not: if this metric is `child` or a descendant of it. Two walks answer that, a step of each in
// turn, and the first to finish decides: up the parent links from this metric (as many steps as it
// is deep), and down the child lists from `child` (as many as its subtree is large). Adding a new
// leaf, or a whole tree under a new root, is then a step or two. The walk up is trusted only while
// every metric on it is listed only where its parent link says; past one listed under a second
// parent or given its parent by hand, the walk down alone decides.
bool QENPerformanceMetric::wouldCloseACycle(const QENPerformanceMetric& child) const {
  if (&child == this) {
    return true;
  }
  if (child.childMetrics_.empty()) {
    return false;
  }
  const QENPerformanceMetric* up = this;
  std::shared_ptr<const QENPerformanceMetric> upKeptAlive;
  std::vector<const QENPerformanceMetric*> down{&child};
  std::unordered_set<const QENPerformanceMetric*> seen;
  for (;;) {
    if (up != nullptr && !up->listedIrregularly_) {
      upKeptAlive = up->parentMetric_.load().lock();
      up = upKeptAlive.get();
      if (up == nullptr) {
        return false;  // the top, and `child` was not on the way
      }
      if (up == &child) {
        return true;
      }
    } else {
      up = nullptr;  // the walk down alone decides
    }
    if (down.empty()) {
      return false;
    }
    const QENPerformanceMetric* metric = down.back();
    down.pop_back();
    for (const auto& listed : metric->childMetrics_) {
      if (listed.get() == this) {
        return true;
      }
      if (seen.insert(listed.get()).second) {
        down.push_back(listed.get());
      }
    }
  }
}

QENPerformanceMetric::MetricList QENPerformanceMetric::childMetrics() const {
  const QENLockGuard guard(propertyLock_);
  return childMetrics_;
}

std::shared_ptr<QENPerformanceMetric> QENPerformanceMetric::parentMetric() const {
  return parentMetric_.load().lock();
}

void QENPerformanceMetric::setParentMetric(const std::weak_ptr<QENPerformanceMetric>& parent) {
  const std::lock_guard structureGuard(treeStructureMutex());
  listedIrregularly_ = true;  // the link may no longer name the metric that lists this one
  parentMetric_.store(parent);
}

// MARK: - Will-start notifications

void QENPerformanceMetric::postMetricWillStart() {
  QENNotificationCenter::defaultCenter().postNotificationName(
      QENPerformanceMetricWillStartNotification, weak_from_this().lock());
}

void QENPerformanceMetric::startObservingMetricWillStartNotificationsIfNeeded() {
  const std::shared_ptr<QENPerformanceMetric> self = weak_from_this().lock();
  if (self == nullptr) {
    return;  // not owned yet: the factories register once it is
  }
  const QENLockGuard guard(propertyLock_);
  if (isObservingMetricWillStart()) {
    return;
  }
  if (!actsOnMetricWillStart_) {  // a registration that would only ever return at once
    isObservingMetricWillStart_.store(true, std::memory_order_relaxed);
    return;
  }
  // The centre holds the metric weakly and never calls it once its destruction has begun, so
  // the handler may refer to it without owning it.
  QENNotificationCenter::defaultCenter().addObserver(
      self, QENPerformanceMetricWillStartNotification, nullptr,
      [this](const QENNotification& notification) {
        metricWillStartWithNotification(notification);
      });
  isObservingMetricWillStart_.store(true, std::memory_order_relaxed);
}

void QENPerformanceMetric::stopObservingMetricWillStartNotificationsIfNeeded() {
  const QENLockGuard guard(propertyLock_);
  if (!isObservingMetricWillStart()) {
    return;
  }
  if (actsOnMetricWillStart_) {
    QENNotificationCenter::defaultCenter().removeObserver(
        static_cast<const void*>(this), QENPerformanceMetricWillStartNotification);
  }
  isObservingMetricWillStart_.store(false, std::memory_order_relaxed);
}

void QENPerformanceMetric::metricWillStartWithNotification(const QENNotification& notification) {
  const auto metric = QENObjectCast<QENPerformanceMetric>(notification.object);
  if (metric == nullptr || metric.get() == this || metric->parentMetric() != nullptr ||
      isFinished()) {
    return;
  }
  addChildMetricIfNeeded(metric);
}

// MARK: - Annotations

void QENPerformanceMetric::addAnnotation(AnnotationPointer annotation) {
  if (annotation == nullptr) {
    QENAssertionFailure("-[QENPerformanceMetric addAnnotation:]",
                        "Assertion should not have been reached");
    return;
  }
  const QENLockGuard guard(propertyLock_);
  annotations_.push_back(std::move(annotation));
}

void QENPerformanceMetric::addBinaryAnnotation(BinaryAnnotationPointer binaryAnnotation) {
  if (binaryAnnotation == nullptr) {
    QENAssertionFailure("-[QENPerformanceMetric addBinaryAnnotation:]",
                        "Assertion should not have been reached");
    return;
  }
  if (!binaryAnnotation->value()) {
    return;
  }
  const QENLockGuard guard(propertyLock_);
  binaryAnnotations_.push_back(std::move(binaryAnnotation));
}

void QENPerformanceMetric::addBinaryAnnotations(
    std::span<const BinaryAnnotationPointer> binaryAnnotations) {
  std::vector<BinaryAnnotationPointer> withValues;
  withValues.reserve(binaryAnnotations.size());
  for (const BinaryAnnotationPointer& binaryAnnotation : binaryAnnotations) {
    if (binaryAnnotation != nullptr && binaryAnnotation->value()) {
      withValues.push_back(binaryAnnotation);
    }
  }
  if (withValues.empty()) {
    return;
  }
  const QENLockGuard guard(propertyLock_);
  binaryAnnotations_.insert(binaryAnnotations_.end(), std::make_move_iterator(withValues.begin()),
                            std::make_move_iterator(withValues.end()));
}

std::vector<QENPerformanceMetric::AnnotationPointer> QENPerformanceMetric::annotations() const {
  const QENLockGuard guard(propertyLock_);
  return annotations_;
}

std::vector<QENPerformanceMetric::BinaryAnnotationPointer> QENPerformanceMetric::binaryAnnotations()
    const {
  const QENLockGuard guard(propertyLock_);
  return binaryAnnotations_;
}

// MARK: - Event routing

void QENPerformanceMetric::processContextLoggingEvent(const EventPointer& event) {
  if (shouldInvalidate(event)) {
    setInvalidatingEvent(event);
    invalidateWithReason(QENPerformanceMetricStopReasonUserAbort);
    return;
  }
  for (const auto& child : childMetrics()) {
    QENDeepTreeTrampoline::run([child, event] { child->processContextLoggingEvent(event); });
  }
}

void QENPerformanceMetric::processPerformanceEventType(std::uint64_t performanceEventType,
                                                       double time) {
  const ShouldCompleteBlock shouldComplete = shouldCompleteBlock();
  if (shouldComplete && shouldComplete(performanceEventType)) {
    setCompletingEvent(performanceEventType);
    stopMetricWithTime(time);
    return;
  }
  for (const auto& child : childMetrics()) {
    QENDeepTreeTrampoline::run([child, performanceEventType, time] {
      child->processPerformanceEventType(performanceEventType, time);
    });
  }
}

// MARK: - Process-wide settings and factories

namespace {

struct ClassSettings {
  bool enablePerformanceTestLogging = false;  // under the class lock
  std::shared_ptr<const QENPerformanceMetric::MetricNameSet>
      uwtMetricNames;  // under the class lock
  std::atomic<bool> shouldCheckPerformanceTestLogging{true};
};

ClassSettings& classSettings() {
  static auto* const settings = new ClassSettings();
  return *settings;
}

}  // namespace

QENLock& QENPerformanceMetric::classPropertyLock() {
  static auto* const lock = new QENLock(kClassPropertyLockLabel);
  return *lock;
}

bool QENPerformanceMetric::enablePerformanceTestLogging() {
  const std::lock_guard guard(classPropertyLock());
  return classSettings().enablePerformanceTestLogging;
}

void QENPerformanceMetric::setEnablePerformanceTestLogging(bool enabled) {
  const std::lock_guard guard(classPropertyLock());
  classSettings().enablePerformanceTestLogging = enabled;
}

bool QENPerformanceMetric::shouldCheckPerformanceTestLogging() {
  return classSettings().shouldCheckPerformanceTestLogging.load(std::memory_order_relaxed);
}

void QENPerformanceMetric::setShouldCheckPerformanceTestLogging(bool shouldCheck) {
  classSettings().shouldCheckPerformanceTestLogging.store(shouldCheck, std::memory_order_relaxed);
}

std::shared_ptr<const QENPerformanceMetric::MetricNameSet> QENPerformanceMetric::uwtMetricNames() {
  const std::lock_guard guard(classPropertyLock());
  return classSettings().uwtMetricNames;
}

void QENPerformanceMetric::setUwtMetricNames(const std::optional<MetricNameSet>& names) {
  std::shared_ptr<const MetricNameSet> copy =
      names ? std::make_shared<const MetricNameSet>(*names) : nullptr;
  const std::lock_guard guard(classPropertyLock());
  classSettings().uwtMetricNames.swap(copy);
}

// MARK: - Hooks

void QENPerformanceMetric::addChildMetricIfNeeded(const std::shared_ptr<QENPerformanceMetric>&) {}

void QENPerformanceMetric::linearizeCriticalPath() {}

bool QENPerformanceMetric::isExclusive() const {
  return false;
}

bool QENPerformanceMetric::shouldLogNetworkRequests() const {
  return true;
}

std::optional<std::string> QENPerformanceMetric::identifier() const {
  return name_;
}

bool QENPerformanceMetric::shouldInvalidate(const EventPointer& event) const {
  const ShouldInvalidateBlock block = shouldInvalidateBlock();
  return block ? block(event) : false;
}

// MARK: - Debug description

std::string_view QENPerformanceMetric::debugNameForStopReason(
    QENPerformanceMetricStopReason reason) {
  static constexpr std::array<std::string_view, 7> kNames = {
      "Complete",     "Unknown",         "UserAbort",  "ServerError",
      "NetworkError", "ResponseTimeout", "ClientError"};
  // reason + 1 taken as unsigned, so that every value outside the table lands above it.
  const std::uint64_t index = static_cast<std::uint64_t>(reason) + 1;
  return index < kNames.size() ? kNames[index] : "Unknown";
}

std::string QENPerformanceMetric::debugDescription() const {
  return _debugDescriptionWithIndentationAmount(0);
}

namespace {

// One metric's line of a debug description; each field is read through its own accessor.
std::string debugDescriptionLine(const QENPerformanceMetric& metric, std::size_t indentation) {
  const double start = metric.startTime();
  const double stop = metric.stopTime();
  const QENPerformanceMetric::EventPointer event = metric.invalidatingEvent();
  const std::string eventText = event ? event->debugDescription() : "nil";
  const std::string_view reasonName =
      QENPerformanceMetric::debugNameForStopReason(metric.invalidateReason());
  const std::string line = QENFoundation::formatString(
      "Metric: %s; Stop reason: %.*s; Timing: %f (%f - %f); Invalidating event: %s\n",
      metric.name() ? metric.name()->c_str() : "(null)", static_cast<int>(reasonName.size()),
      reasonName.data(), stop - start, start, stop, eventText.c_str());
  return QENFoundation::prependIndentationLevel(line, indentation);
}

}  // namespace

// Depth first, children in order, with a stack of its own: a chain of any depth is described.
std::string QENPerformanceMetric::_debugDescriptionWithIndentationAmount(
    std::size_t indentationAmount) const {
  std::string description = debugDescriptionLine(*this, indentationAmount);
  std::vector<std::pair<std::shared_ptr<QENPerformanceMetric>, std::size_t>> pending;
  const auto pushChildren = [&pending](const QENPerformanceMetric& metric, std::size_t level) {
    const MetricList children = metric.childMetrics();
    for (auto child = children.rbegin(); child != children.rend(); ++child) {
      pending.emplace_back(*child, level);
    }
  };
  pushChildren(*this, indentationAmount + 1);
  while (!pending.empty()) {
    const auto [metric, level] = std::move(pending.back());
    pending.pop_back();
    description += debugDescriptionLine(*metric, level);
    pushChildren(*metric, level + 1);
  }
  return description;
}

// MARK: - Identifiers

std::int64_t QENPerformanceMetric::spanId() const {
  const std::int64_t overridden = overriddenSpanId();
  return overridden != 0 ? overridden : spanId_.load(std::memory_order_relaxed);
}

void QENPerformanceMetric::overrideMetricWithSpanId(std::int64_t spanId) {
  const QENLockGuard guard(propertyLock_);
  spanId_.store(spanId, std::memory_order_relaxed);
}

// MARK: - Locked properties

double QENPerformanceMetric::startTime() const {
  const QENLockGuard guard(propertyLock_);
  return startTime_;
}

void QENPerformanceMetric::setStartTime(double startTime) {
  const QENLockGuard guard(propertyLock_);
  startTime_ = startTime;
}

double QENPerformanceMetric::stopTime() const {
  const QENLockGuard guard(propertyLock_);
  return stopTime_;
}

void QENPerformanceMetric::setStopTime(double stopTime) {
  const QENLockGuard guard(propertyLock_);
  stopTime_ = stopTime;
}

QENPerformanceMetricStopReason QENPerformanceMetric::invalidateReason() const {
  const QENLockGuard guard(propertyLock_);
  return invalidateReason_;
}

void QENPerformanceMetric::setInvalidateReason(QENPerformanceMetricStopReason reason) {
  const QENLockGuard guard(propertyLock_);
  invalidateReason_ = reason;
}

QENPerformanceMetricStartReason QENPerformanceMetric::metricCause() const {
  const QENLockGuard guard(propertyLock_);
  return metricCause_;
}

void QENPerformanceMetric::setMetricCause(QENPerformanceMetricStartReason cause) {
  const QENLockGuard guard(propertyLock_);
  metricCause_ = cause;
}

std::int64_t QENPerformanceMetric::viewType() const {
  const QENLockGuard guard(propertyLock_);
  return viewType_;
}

void QENPerformanceMetric::setViewType(std::int64_t viewType) {
  const QENLockGuard guard(propertyLock_);
  viewType_ = viewType;
}

std::int64_t QENPerformanceMetric::viewParameter() const {
  const QENLockGuard guard(propertyLock_);
  return viewParameter_;
}

void QENPerformanceMetric::setViewParameter(std::int64_t viewParameter) {
  const QENLockGuard guard(propertyLock_);
  viewParameter_ = viewParameter;
}

std::shared_ptr<const QENPerformanceMetric::CompletionBlockList>
QENPerformanceMetric::completionBlocks() const {
  const QENLockGuard guard(propertyLock_);
  return completionBlocks_;
}

void QENPerformanceMetric::setCompletionBlocks(std::shared_ptr<const CompletionBlockList> blocks) {
  const QENLockGuard guard(propertyLock_);
  completionBlocks_.swap(blocks);
}

QENPerformanceMetric::ShouldCompleteBlock QENPerformanceMetric::shouldCompleteBlock() const {
  const QENLockGuard guard(propertyLock_);
  return deciders_ ? deciders_->shouldComplete : nullptr;
}

// The block replaced is released after the lock, with the argument.
void QENPerformanceMetric::setShouldCompleteBlock(ShouldCompleteBlock block) {
  const QENLockGuard guard(propertyLock_);
  if (deciders_ == nullptr) {
    deciders_ = std::make_unique<Deciders>();
  }
  deciders_->shouldComplete.swap(block);
}

QENPerformanceMetric::ShouldInvalidateBlock QENPerformanceMetric::shouldInvalidateBlock() const {
  const QENLockGuard guard(propertyLock_);
  return deciders_ ? deciders_->shouldInvalidate : nullptr;
}

void QENPerformanceMetric::setShouldInvalidateBlock(ShouldInvalidateBlock block) {
  const QENLockGuard guard(propertyLock_);
  if (deciders_ == nullptr) {
    deciders_ = std::make_unique<Deciders>();
  }
  deciders_->shouldInvalidate.swap(block);
}

// MARK: - Atomic properties

std::shared_ptr<const QENURL> QENPerformanceMetric::associatedURL() const {
  return associatedURL_.load();
}

void QENPerformanceMetric::setAssociatedURL(const std::shared_ptr<const QENURL>& url) {
  // URLs are immutable, so sharing one is as good as a copy.
  associatedURL_.store(url);
}

std::int64_t QENPerformanceMetric::invalidatingQenLogEventType() const {
  return invalidatingQenLogEventType_.load(std::memory_order_relaxed);
}

void QENPerformanceMetric::setInvalidatingQenLogEventType(std::int64_t type) {
  invalidatingQenLogEventType_.store(type, std::memory_order_relaxed);
}

QENPerformanceMetric::EventPointer QENPerformanceMetric::invalidatingEvent() const {
  return invalidatingEvent_.load();
}

void QENPerformanceMetric::setInvalidatingEvent(EventPointer event) {
  invalidatingEvent_.store(std::move(event));
}

std::uint64_t QENPerformanceMetric::completingEvent() const {
  return completingEvent_.load(std::memory_order_relaxed);
}

void QENPerformanceMetric::setCompletingEvent(std::uint64_t eventType) {
  completingEvent_.store(eventType, std::memory_order_relaxed);
}

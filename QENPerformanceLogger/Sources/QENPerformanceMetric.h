#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "QENFoundation/QENAtomicReference.h"
#include "QENFoundation/QENDate.h"
#include "QENFoundation/QENLock.h"
#include "QENFoundation/QENNotification.h"
#include "QENFoundation/QENObject.h"
#include "QENFoundation/QENThreadSafetyAnnotations.h"
#include "QENFrameMonitor.h"
#include "QENPerformanceMetricAppContext.h"
#include "QENPerformanceMetricFactories.h"
#include "QENPerformanceSendsTraceInHeader.h"
#include "QENThrift/Annotation.h"
#include "QENThrift/BinaryAnnotation.h"
#include "QENThrift/Event.h"
#include "QENThrift/Span.h"
#include "QENURLLoading/QENURL.h"

// Why a metric stopped. Any value may be stored; these are the defined ones.
using QENPerformanceMetricStopReason = std::int64_t;
inline constexpr QENPerformanceMetricStopReason QENPerformanceMetricStopReasonDefault = -1;
inline constexpr QENPerformanceMetricStopReason QENPerformanceMetricStopReasonUnknown = 0;
inline constexpr QENPerformanceMetricStopReason QENPerformanceMetricStopReasonUserAbort = 1;
inline constexpr QENPerformanceMetricStopReason QENPerformanceMetricStopReasonServerError = 2;
inline constexpr QENPerformanceMetricStopReason QENPerformanceMetricStopReasonNetworkError = 3;
inline constexpr QENPerformanceMetricStopReason QENPerformanceMetricStopReasonResponseTimeout = 4;
inline constexpr QENPerformanceMetricStopReason QENPerformanceMetricStopReasonClientError = 5;

// Why the measured wait began: -1 when unset, 1 to 6 for the defined causes.
using QENPerformanceMetricStartReason = std::int64_t;

// Marks an unset start or stop time; compared exactly.
inline constexpr double kUnsetTime = -1.0;

// Posted, with the starting metric as object, on the default notification centre by every start
// of a metric that posts will-start notifications.
inline constexpr std::string_view QENPerformanceMetricWillStartNotification =
    "QENPerformanceMetricWillStart";

// Defined for clients; the library neither posts this notification nor reads this key.
inline constexpr std::string_view QENPerformanceMetricLogNotificationName =
    "QENPerformanceMetricLogNotificationName";
inline constexpr std::string_view kDisablePerformanceMetricsAndTrackers =
    "kDisablePerformanceMetricsAndTrackers";

// A named interval of monotonic time: started, stopped or invalidated by client code, nested
// into trees, sampled for upload and exported as spans.
//
// Thread safety: every operation may be called from any thread. Times, reasons, view fields,
// callbacks and the child list are guarded by the metric's own lock (propertyLock); single
// values without a lock are atomics. A parent's lock may be held while a child's is taken, never
// the reverse. Completion callbacks run on the global queue, never on the stopping thread and
// never under a lock.
//
// Ownership: metrics are always owned by std::shared_ptr and made by the static factories
// (QENPerformanceMetricFactories). A parent owns its children; a child's parentMetric is a weak
// reference.
class QENPerformanceMetric : public QENObject,
                             public std::enable_shared_from_this<QENPerformanceMetric>,
                             public QENPerformanceMetricFactories<QENPerformanceMetric> {
 public:
  using CompletionBlock = std::function<void(bool valid)>;
  using CompletionBlockList = std::vector<CompletionBlock>;
  using ShouldCompleteBlock = std::function<bool(std::uint64_t performanceEventType)>;
  using EventPointer = std::shared_ptr<const QENThrift::Event>;
  using ShouldInvalidateBlock = std::function<bool(const EventPointer& event)>;
  using MetricList = std::vector<std::shared_ptr<QENPerformanceMetric>>;
  using AnnotationPointer = std::shared_ptr<const QENThrift::Annotation>;
  using BinaryAnnotationPointer = std::shared_ptr<const QENThrift::BinaryAnnotation>;
  using MetricNameSet = std::set<std::string, std::less<>>;
  using SpanList = std::vector<std::shared_ptr<QENThrift::Span>>;

  // ==== For a host ====
  // Made by the factories (QENPerformanceMetricFactories): initWithName, initLeafMetricWithName,
  // createWithName.

  // Lifecycle. The first start wins: a later start with another time is ignored. A stop before
  // any start, and a second stop, change nothing. A start at NaN is reported and ignored; a stop
  // at NaN is reported and clamped to the start.
  void startMetric();
  void stopMetric();
  void startMetricWithTime(double startTime);
  virtual void stopMetricWithTime(double stopTime);
  // Invalidates with QENPerformanceMetricStopReasonUnknown.
  void invalidate();
  // Stores the reason, stops the metric now if it was not stopped, invalidates every child with
  // the same reason and runs the completion callbacks with false. Works in every state.
  void invalidateWithReason(QENPerformanceMetricStopReason reason);
  // Stores the host's log event type under the lock, then invalidates.
  void invalidateWithReason(QENPerformanceMetricStopReason reason,
                            std::int64_t invalidatingQenLogEventType);
  // Stores the host's log event type without the lock, then invalidates.
  void invalidateWithReasonAndQENLogEventType(QENPerformanceMetricStopReason reason,
                                              std::int64_t invalidatingQenLogEventType);

  // Runs `block` once when the metric stops or is invalidated, on the global queue. On a metric
  // that has already finished it runs at once, on the calling thread. An empty block is reported
  // and ignored. A block that throws on the global queue is reported through the developer
  // logger and the blocks after it still run; one that throws on the calling thread propagates
  // to the caller.
  void addCompletionBlock(CompletionBlock block);

  // Queries, each under the lock.
  bool isStarted() const;
  bool isFinished() const;
  bool isInFlight() const;
  bool isValid() const;
  // Stop (or now, while running) minus start; not checked: an unstarted metric reports now + 1.
  double metricTime() const;
  // Whether the metric is sampled for upload and not invalidated as Unknown.
  bool shouldUpload() const;

  // Tree. addChildMetric appends the child and makes this metric its parent; a child that
  // already has a parent is reported, re-parented and appended anyway. A child that would close
  // a cycle (this metric itself, or one this metric descends from) is reported and not added:
  // the metrics of a tree can therefore always finish, be freed and be walked. Must not be
  // called while holding a metric's lock.
  void addChildMetric(std::shared_ptr<QENPerformanceMetric> child);
  // A snapshot, in insertion order; empty when there are no children.
  MetricList childMetrics() const;
  std::shared_ptr<QENPerformanceMetric> parentMetric() const;
  void setParentMetric(const std::weak_ptr<QENPerformanceMetric>& parent);

  // Annotations. Both lists keep insertion order and allow duplicates, in every state of the
  // metric. A binary annotation without a value is dropped without a report.
  void addAnnotation(AnnotationPointer annotation);
  void addBinaryAnnotation(BinaryAnnotationPointer binaryAnnotation);
  // Appends, in one step and in order, every entry that has a value (null entries are dropped
  // like entries without one).
  void addBinaryAnnotations(std::span<const BinaryAnnotationPointer> binaryAnnotations);
  // Snapshots; empty when nothing was added.
  std::vector<AnnotationPointer> annotations() const;
  std::vector<BinaryAnnotationPointer> binaryAnnotations() const;

  // Event routing from the top of a tree. A context-logging event that a metric accepts
  // (shouldInvalidate) invalidates it with UserAbort and records the event there; a performance
  // event type that a metric accepts (shouldCompleteBlock) stops it at `time`. An accepted event
  // goes no further down; any other is offered to a snapshot of the children, in order. The
  // deciding callbacks run on the calling thread, outside every lock.
  void processContextLoggingEvent(const EventPointer& event);
  void processPerformanceEventType(std::uint64_t performanceEventType, double time);

  // Debugging: one line per metric of the tree, children indented one level deeper, e.g.
  //   "Metric: feed; Stop reason: Complete; Timing: 0.250000 (10.000000 - 10.250000);
  //    Invalidating event: nil\n"
  // A diagnostic snapshot: each field is read on its own, so a tree that changes meanwhile may
  // show values from before and after the change.
  std::string debugDescription() const;
  std::string _debugDescriptionWithIndentationAmount(std::size_t indentationAmount) const;
  // "Complete" for the default (valid) reason, the enumerator's name for the defined ones,
  // "Unknown" for any other value.
  static std::string_view debugNameForStopReason(QENPerformanceMetricStopReason reason);

  // Conveniences (QENPerformanceMetric+Convenience.cpp).
  // The result of the whole wait on a metric exported as a child span: the uwt result, the
  // result reason and, if any, the invalidating event. Meant for non-uwt metrics (a uwt metric
  // gets them at export); on a uwt metric it is reported and done all the same.
  void addResultAndInvalidationAnnotations();
  // Runs the metric now for a nominal millisecond and marks it "metric_preloaded": the wait was
  // served from a preload.
  void markMetricAsPreloaded();
  // Annotates the metric with the application's trips to the background and back until
  // removeAppLifecycleNotificationObservation. Registering twice annotates twice.
  void configureAppLifecycleNotificationObservation();
  void removeAppLifecycleNotificationObservation();
  void appDidEnterBackground(const QENNotification& notification);
  void appWillResignActive(const QENNotification& notification);
  void appWillEnterForeground(const QENNotification& notification);
  void appDidBecomeActive(const QENNotification& notification);
  // Starts at one wall-clock date and stops at another.
  void startMetricWithDate(const QENDate& startDate, const QENDate& stopDate);

  // Process-wide settings. The library stores the two performance-test switches for its clients
  // and reads neither; uwtMetricNames names the user-wait metrics for span export.
  static QENLock& classPropertyLock();
  static bool enablePerformanceTestLogging();
  static void setEnablePerformanceTestLogging(bool enabled);
  static bool shouldCheckPerformanceTestLogging();
  static void setShouldCheckPerformanceTestLogging(bool shouldCheck);
  // Null until set; the setter stores a copy, replaced as a whole.
  static std::shared_ptr<const MetricNameSet> uwtMetricNames();
  static void setUwtMetricNames(const std::optional<MetricNameSet>& names);

  // Identity and sampling.
  // Absent only for a metric made without one (initWithName(std::nullopt, ...)).
  const std::optional<std::string>& name() const noexcept { return name_; }
  double uploadFraction() const noexcept { return uploadFraction_; }
  // The metric's sampling draw, one of 0.00, 0.01, ..., 0.99. Drawn once, when first needed:
  // most metrics are children that are never sampled on their own.
  double randomUploadFraction() const noexcept;
  std::int64_t traceId() const noexcept { return traceId_; }
  // The span id drawn for the URL this metric's request carried in its trace headers, if it
  // adopts QENPerformanceSendsTraceInHeader and one was drawn; else the metric's own.
  std::int64_t spanId() const;
  void overrideMetricWithSpanId(std::int64_t spanId);

  // Spans (QENPerformanceMetric+Spans.cpp).
  // The spans of this metric's tree, in one trace: this metric's span first (whatever its
  // state, and without a parent id), then, depth first with the last child first, the span of
  // every descendant that started and finished. An unfinished metric is left out with its whole
  // subtree.
  SpanList spansWithAppContext(const QENPerformanceMetricAppContext& appContext) const;
  // The spans of this tree as it stands while it may still run: as spansWithAppContext, but a
  // started metric that has not finished, this one included, is exported as if it had stopped
  // at `snapshotTime` (monotonic seconds), and its subtree with it. Metrics that never started
  // are left out as ever. Nothing is stopped: the tree goes on as before.
  SpanList snapshotSpansWithAppContext(const QENPerformanceMetricAppContext& appContext,
                                       double snapshotTime) const;
  // Fills every field of `span` but the trace id and the parent id from this metric.
  void setParametersForTopLevel(bool isTopLevel, QENThrift::Span& span,
                                const QENPerformanceMetricAppContext& appContext) const;
  // Draws a span id for a request to `url`, keeps it (replacing an earlier one for that URL)
  // and returns it: the value of the request's span-id header.
  std::int64_t generateAndStoreSpanIdForURL(const std::shared_ptr<const QENURL>& url);
  // The id kept for urlHeaderSentTo, for a metric that adopts QENPerformanceSendsTraceInHeader;
  // 0 for any other metric or when none was kept.
  std::int64_t overriddenSpanId() const;

  // Locked properties.
  double startTime() const;
  void setStartTime(double startTime);
  double stopTime() const;
  void setStopTime(double stopTime);
  QENPerformanceMetricStopReason invalidateReason() const;
  void setInvalidateReason(QENPerformanceMetricStopReason reason);
  QENPerformanceMetricStartReason metricCause() const;
  void setMetricCause(QENPerformanceMetricStartReason cause);
  std::int64_t viewType() const;
  void setViewType(std::int64_t viewType);
  std::int64_t viewParameter() const;
  void setViewParameter(std::int64_t viewParameter);
  // Null when no callback was added since the last stop or invalidation.
  std::shared_ptr<const CompletionBlockList> completionBlocks() const;
  void setCompletionBlocks(std::shared_ptr<const CompletionBlockList> blocks);
  ShouldCompleteBlock shouldCompleteBlock() const;
  void setShouldCompleteBlock(ShouldCompleteBlock block);
  ShouldInvalidateBlock shouldInvalidateBlock() const;
  void setShouldInvalidateBlock(ShouldInvalidateBlock block);

  // Atomic properties.
  std::shared_ptr<const QENURL> associatedURL() const;
  // Stores a copy of the URL.
  void setAssociatedURL(const std::shared_ptr<const QENURL>& url);
  std::int64_t invalidatingQenLogEventType() const;
  void setInvalidatingQenLogEventType(std::int64_t type);
  EventPointer invalidatingEvent() const;
  void setInvalidatingEvent(EventPointer event);
  std::uint64_t completingEvent() const;
  void setCompletingEvent(std::uint64_t eventType);

  // Plain flags.
  bool hasBeenReported() const noexcept { return reported_.load(std::memory_order_relaxed); }
  void setReported(bool reported) noexcept { reported_.store(reported, std::memory_order_relaxed); }
  bool critical() const noexcept { return critical_.load(std::memory_order_relaxed); }
  void setCritical(bool critical) noexcept { critical_.store(critical, std::memory_order_relaxed); }
  bool shouldObserveMetricWillStart() const noexcept {
    return shouldObserveMetricWillStart_.load(std::memory_order_relaxed);
  }
  // Changes only the flag: it neither registers nor removes the listener.
  void setShouldObserveMetricWillStart(bool shouldObserve) noexcept {
    shouldObserveMetricWillStart_.store(shouldObserve, std::memory_order_relaxed);
  }
  bool shouldPostMetricWillStart() const noexcept {
    return shouldPostMetricWillStart_.load(std::memory_order_relaxed);
  }
  void setShouldPostMetricWillStart(bool shouldPost) noexcept {
    shouldPostMetricWillStart_.store(shouldPost, std::memory_order_relaxed);
  }
  bool isObservingMetricWillStart() const noexcept {
    return isObservingMetricWillStart_.load(std::memory_order_relaxed);
  }

  // ==== For a subclass ====
  // What a metric class of the host's or the library's own builds on: construction through the
  // factories, the hooks it overrides, its lock and the queries that assume it is held, and the
  // plumbing of notifications and will-start listening, which the library calls.

  // Only the factories can make a key, so only they construct metrics.
  class ConstructionKey {
    explicit ConstructionKey() = default;
    friend class QENPerformanceMetric;
  };

  // A subclass may take its name as a std::string: it converts.
  QENPerformanceMetric(ConstructionKey, std::optional<std::string> name, double uploadFraction,
                       bool shouldObserveMetricWillStart, bool shouldPostMetricWillStart);
  ~QENPerformanceMetric() override;
  QENPerformanceMetric(const QENPerformanceMetric&) = delete;
  QENPerformanceMetric& operator=(const QENPerformanceMetric&) = delete;

  // Hooks.
  // Called for each metric that starts while this one listens, is unfinished, and the starting
  // metric has no parent. Adopt it with addChildMetric if it belongs here.
  virtual void addChildMetricIfNeeded(const std::shared_ptr<QENPerformanceMetric>& metric);
  virtual void linearizeCriticalPath();
  virtual bool isExclusive() const;
  virtual bool shouldLogNetworkRequests() const;
  virtual std::optional<std::string> identifier() const;
  // Whether a host's context-logging event invalidates this metric; by default the answer of
  // shouldInvalidateBlock, or false without one.
  virtual bool shouldInvalidate(const EventPointer& event) const;

  // The state tests for callers that already hold the lock.
  bool _locked_isFinished() const QEN_REQUIRES(propertyLock_);
  bool _locked_isValid() const QEN_REQUIRES(propertyLock_);
  void lock() const QEN_ACQUIRE(propertyLock_) { propertyLock_.lock(); }
  void unlock() const QEN_RELEASE(propertyLock_) { propertyLock_.unlock(); }
  QENLock& propertyLock() const QEN_RETURN_CAPABILITY(propertyLock_) { return propertyLock_; }

  // Recognised as the object of a notification without run-time type information.
  static constexpr QENObjectClassKey kObjectClassKey{};
  const void* objectAs(const QENObjectClassKey& key) const override;
  // The metric itself when its class adopts QENPerformanceSendsTraceInHeader, else null: the
  // factories, which know the class, record it, with no run-time type information. Export then
  // reports the span id sent in its request's headers.
  const QENPerformanceSendsTraceInHeader* asTraceHeaderSender() const noexcept {
    return traceHeaderSender_;
  }

  // Will-start notifications.
  void startObservingMetricWillStartNotificationsIfNeeded();
  void stopObservingMetricWillStartNotificationsIfNeeded();
  void metricWillStartWithNotification(const QENNotification& notification);

 protected:
  template <class>
  friend class QENPerformanceMetricFactories;

  // Makes a metric of class Metric (whose constructor takes a ConstructionKey first) and, once it
  // is owned, registers its will-start listener if it observes.
  template <class Metric, class... Arguments>
  static std::shared_ptr<Metric> makeMetric(Arguments&&... arguments) {
    auto metric =
        std::make_shared<Metric>(ConstructionKey{}, std::forward<Arguments>(arguments)...);
    recordAdoptedProtocols(*metric);
    metric->actsOnMetricWillStart_ = actsOnMetricWillStart<Metric>();
    metric->didFinishConstruction();
    return metric;
  }

  template <class Metric>
  static std::shared_ptr<Metric> makeMetricWithIdentifiers(std::string name,
                                                           std::optional<std::int64_t> traceId,
                                                           std::int64_t spanId) {
    auto metric = std::make_shared<Metric>(ConstructionKey{}, std::move(name), 1.0, true, true);
    if (traceId) {
      metric->traceId_ = *traceId;
    }
    metric->spanId_.store(spanId, std::memory_order_relaxed);
    recordAdoptedProtocols(*metric);
    metric->actsOnMetricWillStart_ = actsOnMetricWillStart<Metric>();
    metric->didFinishConstruction();
    return metric;
  }

  // Whether class Metric's addChildMetricIfNeeded can act: the base form does nothing, so a
  // listener of that form is marked as observing but never registered with the centre, and a
  // start costs nothing for it, however many such metrics the app forgot running.
  template <class Metric>
  static constexpr bool actsOnMetricWillStart() {
    return !std::is_same_v<decltype(&Metric::addChildMetricIfNeeded),
                           decltype(&QENPerformanceMetric::addChildMetricIfNeeded)>;
  }

  template <class Metric>
  static void recordAdoptedProtocols(Metric& metric) {
    if constexpr (std::is_base_of_v<QENPerformanceSendsTraceInHeader, Metric>) {
      metric.traceHeaderSender_ = &metric;
    }
  }

 private:
  // Span export's walk and its per-metric snapshot (QENSpanExport.cpp) read the fields below.
  friend class QENSpanExport;

  void didFinishConstruction();
  void postMetricWillStart();
  // Tags the metric with the frames drawn between its start and stop, if any were reported.
  void tagFramesSeen(const QENFrameTally& atStart, double startTime, double stopTime);
  // A top-level metric's child span "app.hang" for each hang of its run.
  void addHangsSeen(double startTime, double stopTime);
  // Under the tree-structure mutex alone, which every change to a child list or parent link holds.
  bool wouldCloseACycle(const QENPerformanceMetric& child) const QEN_NO_THREAD_SAFETY_ANALYSIS;

  // Guarded by propertyLock_.
  QENPerformanceMetricStopReason invalidateReason_ QEN_GUARDED_BY(propertyLock_) =
      QENPerformanceMetricStopReasonDefault;
  QENPerformanceMetricStartReason metricCause_ QEN_GUARDED_BY(propertyLock_) = -1;
  double startTime_ QEN_GUARDED_BY(propertyLock_) = kUnsetTime;
  double stopTime_ QEN_GUARDED_BY(propertyLock_) = kUnsetTime;
  std::int64_t viewType_ QEN_GUARDED_BY(propertyLock_) = -1;
  std::int64_t viewParameter_ QEN_GUARDED_BY(propertyLock_) = -1;
  MetricList childMetrics_ QEN_GUARDED_BY(propertyLock_);
  std::vector<AnnotationPointer> annotations_ QEN_GUARDED_BY(propertyLock_);
  std::vector<BinaryAnnotationPointer> binaryAnnotations_ QEN_GUARDED_BY(propertyLock_);
  // Made on first use: most metrics never send trace headers or decide on events, and a leaf
  // metric's footprint is what every measurement pays.
  std::unique_ptr<std::unordered_map<std::string, std::int64_t>> urlToSpanId_
      QEN_GUARDED_BY(propertyLock_);  // by absoluteString
  std::shared_ptr<const CompletionBlockList> completionBlocks_ QEN_GUARDED_BY(propertyLock_);
  struct Deciders {
    ShouldCompleteBlock shouldComplete;
    ShouldInvalidateBlock shouldInvalidate;
  };
  std::unique_ptr<Deciders> deciders_ QEN_GUARDED_BY(propertyLock_);
  // The frame tally at the start, once the host reports frames (none before the first frame).
  std::unique_ptr<QENFrameTally> framesAtStart_ QEN_GUARDED_BY(propertyLock_);
  mutable QENLock propertyLock_;

  // Fixed after construction.
  const std::optional<std::string> name_;
  const double uploadFraction_;
  static constexpr double kNotDrawn = -1.0;
  mutable std::atomic<double> randomUploadFraction_{kNotDrawn};
  std::int64_t traceId_ = 0;

  std::atomic<std::int64_t> spanId_{0};
  QENAtomicReference<std::shared_ptr<const QENURL>> associatedURL_;
  std::atomic<std::int64_t> invalidatingQenLogEventType_{-1};
  QENAtomicReference<EventPointer> invalidatingEvent_;
  std::atomic<std::uint64_t> completingEvent_{0};
  QENAtomicReference<std::weak_ptr<QENPerformanceMetric>> parentMetric_;
  const QENPerformanceSendsTraceInHeader* traceHeaderSender_ = nullptr;  // fixed once made
  bool listedIrregularly_ = false;  // re-parented or given a parent by hand; tree mutex
  std::atomic<bool> reported_{false};
  std::atomic<bool> critical_{false};
  std::atomic<bool> shouldObserveMetricWillStart_;
  std::atomic<bool> shouldPostMetricWillStart_;
  std::atomic<bool> isObservingMetricWillStart_{false};
  std::atomic<bool> observesAppLifecycle_{false};
  bool actsOnMetricWillStart_ = true;  // fixed before the metric is shared
};

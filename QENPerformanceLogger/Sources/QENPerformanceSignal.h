#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "QENURLLoading/QENURL.h"

// One video preload: which video, when it started and ended and how, whether the asset came
// from the local cache, and the trace identity of its CDN request. Not part of a metric tree:
// the host reads the outcome and the duration and reports them itself.
//
// getHeaderFields gives the B3 headers for the CDN request, whose span is a child of the
// preload's: trace id, the preload's span id as parent, the CDN span id, and the debug flag
// when CDN logging is on.
class QENPerformanceSignal {
 public:
  using HeaderFields = std::map<std::string, std::string, std::less<>>;

  // initWithVideoUrl:traceId:isCachedAsset:enableCdnLogging:; starts now.
  static std::shared_ptr<QENPerformanceSignal> initWithVideoUrl(
      std::shared_ptr<const QENURL> videoUrl, std::int64_t traceId, bool isCachedAsset,
      bool enableCdnLogging);
  // With a fresh random trace id.
  static std::shared_ptr<QENPerformanceSignal> initWithVideoUrl(
      std::shared_ptr<const QENURL> videoUrl, bool isCachedAsset, bool enableCdnLogging);
  // Already stopped, lasting (almost) nothing: for tests.
  static std::shared_ptr<QENPerformanceSignal> initWithVideoUrlForTest(
      std::shared_ptr<const QENURL> videoUrl, std::optional<std::string> playbackSessionId);

  bool isStopped() const { return stopTime() != -1.0; }
  // Each stores the flag and stamps the stop time now, whatever the value.
  void setIsReadyToPlay(bool readyToPlay);
  void setIsPreloadFailed(bool failed);
  void setIsCancelled(bool cancelled);
  // Seconds, rounded to whole microseconds (halves away from zero). Meaningless (negative)
  // while the preload runs.
  double getPreloadDuration() const;
  HeaderFields getHeaderFields() const;

  bool isReadyToPlay() const { return isReadyToPlay_; }
  bool isPreloadFailed() const { return isPreloadFailed_; }
  bool isCancelled() const { return isCancelled_; }
  bool isCachedAsset() const { return isCachedAsset_; }
  void setIsCachedAsset(bool cached) { isCachedAsset_ = cached; }
  bool enableCdnLogging() const { return enableCdnLogging_; }
  void setEnableCdnLogging(bool enabled) { enableCdnLogging_ = enabled; }
  const std::shared_ptr<const QENURL>& videoUrl() const { return videoUrl_; }
  std::int64_t traceId() const { return traceId_; }
  std::int64_t spanId() const { return spanId_; }
  std::int64_t cdnSpanId() const { return cdnSpanId_; }
  double startTime() const { return startTime_.load(std::memory_order_relaxed); }
  void setStartTime(double time) { startTime_.store(time, std::memory_order_relaxed); }
  double stopTime() const { return stopTime_.load(std::memory_order_relaxed); }
  void setStopTime(double time) { stopTime_.store(time, std::memory_order_relaxed); }
  const std::optional<std::string>& playbackSessionId() const { return playbackSessionId_; }
  void setPlaybackSessionId(std::optional<std::string> id) { playbackSessionId_ = std::move(id); }

  QENPerformanceSignal(std::shared_ptr<const QENURL> videoUrl, std::int64_t traceId,
                       bool isCachedAsset, bool enableCdnLogging);

 private:
  std::atomic<bool> isReadyToPlay_{false};
  std::atomic<bool> isPreloadFailed_{false};
  std::atomic<bool> isCancelled_{false};
  std::atomic<bool> isCachedAsset_;
  std::atomic<bool> enableCdnLogging_;
  std::shared_ptr<const QENURL> videoUrl_;
  std::int64_t traceId_;
  std::int64_t spanId_;
  std::int64_t cdnSpanId_;
  std::atomic<double> startTime_;
  std::atomic<double> stopTime_{-1.0};
  std::optional<std::string> playbackSessionId_;
};

#include "QENUnfinishedTraceWatcher.h"

#include <algorithm>

#include "BinaryAnnotation+QENAdditions.h"
#include "QENApplication/QENApplicationLifecycle.h"
#include "QENFoundation/QENMonotonicTime.h"
#include "QENFoundation/QENNetworkEndianHexString.h"
#include "QENFoundation/QENNotificationCenter.h"
#include "QENHostCall.h"

namespace {

std::string treeIdOf(const QENPerformanceMetric& topLevel) {
  return QENFoundation::qen_networkEndianHexString(topLevel.traceId()) + "-" +
         QENFoundation::qen_networkEndianHexString(topLevel.spanId());
}

}  // namespace

QENUnfinishedTraceWatcher::QENUnfinishedTraceWatcher(std::shared_ptr<QENSpanSpool> spool,
                                                     QENSpanEncoding encoding,
                                                     QENPerformanceMetricAppContext appContext,
                                                     std::chrono::milliseconds interval,
                                                     SnapshotCallback didSnapshot)
    : state_(std::make_shared<State>(std::move(spool), std::move(encoding), std::move(appContext),
                                     std::move(didSnapshot))) {
  const std::weak_ptr<State> state = state_;
  QENNotificationCenter::defaultCenter().addObserver(state_,
                                                     UIApplicationDidEnterBackgroundNotification,
                                                     nullptr, [state](const QENNotification&) {
                                                       if (const auto alive = state.lock()) {
                                                         alive->askForSnapshot();
                                                       }
                                                     });
  thread_ = std::thread([this, interval] { run(interval); });
}

QENUnfinishedTraceWatcher::~QENUnfinishedTraceWatcher() {
  QENNotificationCenter::defaultCenter().removeObserver(state_.get());
  {
    const std::lock_guard guard(state_->wakeMutex);
    state_->stopping = true;
  }
  state_->wake.notify_all();
  thread_.join();
}

void QENUnfinishedTraceWatcher::watch(const std::shared_ptr<QENPerformanceMetric>& topLevel) {
  if (topLevel == nullptr) {
    return;
  }
  {
    const std::lock_guard guard(state_->mutex);
    state_->watched.push_back(topLevel);
  }
  const std::weak_ptr<QENSpanSpool> spool = state_->spool;
  topLevel->addCompletionBlock([spool, treeId = treeIdOf(*topLevel)](bool) {
    if (const auto alive = spool.lock()) {
      alive->forgetSnapshot(treeId);
    }
  });
}

void QENUnfinishedTraceWatcher::snapshotNow() {
  state_->snapshot();
}

void QENUnfinishedTraceWatcher::run(std::chrono::milliseconds interval) {
  State& state = *state_;
  std::unique_lock lock(state.wakeMutex);
  const auto woken = [&state] { return state.snapshotAsked || state.stopping; };
  for (;;) {
    if (interval > std::chrono::milliseconds(0)) {
      state.wake.wait_for(lock, interval, woken);  // a snapshot either way
    } else {
      state.wake.wait(lock, woken);
    }
    if (state.stopping && !state.snapshotAsked) {
      return;
    }
    state.snapshotAsked = false;
    lock.unlock();
    state.snapshot();
    lock.lock();
  }
}

void QENUnfinishedTraceWatcher::State::askForSnapshot() {
  {
    const std::lock_guard guard(wakeMutex);
    snapshotAsked = true;
  }
  wake.notify_one();
}

// On the watcher's timer thread or the one that posts the lifecycle notification: the host's tag
// filter or callback throwing loses that snapshot, never the process.
void QENUnfinishedTraceWatcher::State::snapshot() {
  QENCallHost("A snapshot's tag filter or didSnapshot", [this] {
    const std::size_t stored = snapshotWatched();
    if (didSnapshot) {
      didSnapshot(stored);
    }
  });
}

std::size_t QENUnfinishedTraceWatcher::State::snapshotWatched() {
  const std::lock_guard guard(mutex);
  const double now = QENMonotonicTimeGetCurrent();
  std::size_t stored = 0;
  std::erase_if(watched, [&](const std::weak_ptr<QENPerformanceMetric>& weak) {
    const auto topLevel = weak.lock();
    if (topLevel == nullptr) {
      return true;  // dropped unfinished: its last snapshot stays
    }
    const bool storedNow = !topLevel->isFinished() && snapshotTree(*topLevel, now);
    // Checked after storing: a tree that completed meanwhile must leave no snapshot behind,
    // whichever of this and its completion callback came first.
    if (topLevel->isFinished()) {
      spool->forgetSnapshot(treeIdOf(*topLevel));
      return true;
    }
    stored += storedNow ? 1 : 0;
    return false;
  });
  return stored;
}

bool QENUnfinishedTraceWatcher::State::snapshotTree(const QENPerformanceMetric& topLevel,
                                                    double now) {
  if (!topLevel.isStarted()) {
    return false;
  }
  auto spans = topLevel.snapshotSpansWithAppContext(appContext, now);
  const auto recovered = QENThrift::BinaryAnnotationQENAdditions::annotationWithKeyBoolean(
      kQENRecoveredAnnotationKey, true);
  for (const auto& span : spans) {
    auto annotations = span->binary_annotations();
    annotations.push_back(recovered);
    span->setBinary_annotations(std::move(annotations));
  }
  return spool->storeSnapshot(treeIdOf(topLevel), encoding.encodeBatch(spans));
}

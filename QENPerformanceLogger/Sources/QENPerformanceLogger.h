#pragma once

// Everything a host app uses, in one include. Each header says what its types are for; the
// README's example shows the common path: measure, export, send.

// Measuring what the user waits for.
#include "QENAnimationMetric.h"  // an animation or a stretch of scrolling
#include "QENAppStartType.h"     // cold, warm, hot or prewarmed, for the start-up metric
#include "QENContentTypePerformanceSignal.h"
#include "QENDefaultContentTypePerformanceSignal.h"
#include "QENEndpointPerformanceMetric.h"  // one network request
#include "QENExecutableTask.h"
#include "QENFrameMonitor.h"  // the frames the host draws: slow, frozen, their delay
#include "QENHangMonitor.h"   // the main thread's hangs, from its heartbeats
#include "QENImageDownloadPerformanceMetric.h"  // one image, loaded and shown
#include "QENImageDownloadPerformanceMetricManager.h"
#include "QENImagePerformanceDelegate.h"
#include "QENLocalPerformanceManager.h"      // local performance-test runs
#include "QENMeasuredTask.h"                 // start-up work, measured or not
#include "QENParentPerformanceMetric.h"      // a metric under which requests are traced
#include "QENPerformanceMetric.h"            // a named interval, nested into trees
#include "QENPerformanceMetricAppContext.h"  // what span export is told about the app
#include "QENPerformanceSignal.h"            // one video preload
#include "QENScreenDisplay.h"                // a screen's time to initial and full display
#include "QENScrollVelocityEventObserver.h"
#include "QENScrollVelocityUtility.h"
#include "QENUnmeasuredTask.h"

// Annotations, and what network measurements derive from a transaction.
#include "Annotation+QENAdditions.h"
#include "BinaryAnnotation+QENAdditions.h"
#include "QENURLSessionTaskTransactionMetrics+NetworkMetrics.h"
#include "performance_tracing_clientConstants.h"

// Joining a request's server spans to the client's trace.
#include "QENTracePropagationHeaders.h"
#include "QENTracePropagationPolicy.h"
#include "QENZipkinHTTPHeaders.h"

// For a subclass: the protocols a metric adopts, the factories it inherits, the guard for its lock.
#include "QENFoundation/QENLockGuard.h"
#include "QENPerformanceMetricFactories.h"
#include "QENPerformanceSendsSubspans.h"
#include "QENPerformanceSendsTraceInHeader.h"

// Debugging.
#include "Span+DebugDescription.h"

// What a host supplies to the platform layer: lifecycle events and its own notifications,
// reachability, launch options, bundle and device information, the developer log's sink, the
// queue callbacks run on, and the responses its network stack received.
#include "QENApplication/QENApplicationLifecycle.h"
#include "QENBundle/QENBundle.h"
#include "QENCommandLineOptions/QENCommandLineOptions.h"
#include "QENDevice/QENDevice.h"
#include "QENFoundation/QENFoundationDevLogger.h"
#include "QENFoundation/QENGlobalQueue.h"
#include "QENFoundation/QENNotificationCenter.h"
#include "QENReachability/QENNetworkingReachabilityManager.h"
#include "QENURLLoading/QENHTTPURLResponse.h"

#include "QENPerformanceLoggerVersion.h"

#pragma once

// The companions in one include: spans encoded for tracing backends, and delivered to a collector.

// Encoding: one choice of format for a reporter and its watcher, or an encoder called directly.
#include "QENChromeTraceEncoder.h"
#include "QENOTLPJSONEncoder.h"
#include "QENSpanEncoding.h"
#include "QENZipkinThriftEncoder.h"
#include "QENZipkinV2JSONEncoder.h"

// Delivery: the reporter, the spool that keeps spans through a killed app, the watcher of
// unfinished trees, and the transport a host may replace.
#include "QENCollectorTransport.h"
#include "QENCurlCollectorTransport.h"
#include "QENFatalHangRecording.h"
#include "QENHostCollectorTransport.h"
#include "QENSpanReporter.h"
#include "QENSpanSpool.h"
#include "QENUnfinishedTraceWatcher.h"

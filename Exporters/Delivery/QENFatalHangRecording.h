#pragma once

#include <functional>
#include <memory>

#include "QENHangMonitor.h"
#include "QENPerformanceMetricAppContext.h"
#include "QENSpanEncoding.h"
#include "QENSpanSpool.h"

// The snapshot id a hang going on is kept under in the spool.
inline constexpr const char* kQENOngoingHangSnapshotId = "app.hang";

// An observer for QENHangMonitor::Options that keeps the hang going on in the spool, so that an
// app killed during a hang (by the system's watchdog, or by a user who gave up) reports it at its
// next launch: the spool turns the snapshot left behind into a batch of one span "app.hang",
// tagged "app.hang.fatal" = true, lasting as long as the hang had lasted at its last check. A hang
// that ends leaves nothing in the spool: the metrics that ran through it report it.
std::function<void(const QENRecordedHang&, bool ongoing)> QENFatalHangRecording(
    std::shared_ptr<QENSpanSpool> spool, QENSpanEncoding encoding,
    QENPerformanceMetricAppContext appContext);

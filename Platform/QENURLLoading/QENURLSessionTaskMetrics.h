#pragma once

#include <memory>
#include <string>
#include <vector>

#include "QENFoundation/QENDate.h"
#include "QENURLSessionTaskTransactionMetrics.h"

// A span of wall-clock time.
struct QENDateInterval {
  QENDate startDate;
  QENDate endDate;
};

// What the URL-loading system reports for one task: its transactions and its interval, tagged
// with the run-time class name of the object that carried them ("NSURLSessionTaskMetrics" or
// "__NSCFURLSessionTaskMetrics" from the platform, "CronetMetrics" from the Cronet stack, or
// anything else), so that a host can hand over whatever its stack gives.
struct QENURLSessionTaskMetrics {
  std::string className = "NSURLSessionTaskMetrics";
  std::vector<std::shared_ptr<const QENURLSessionTaskTransactionMetrics>> transactionMetrics;
  QENDateInterval taskInterval{QENDate::dateWithTimeIntervalSinceReferenceDate(0),
                               QENDate::dateWithTimeIntervalSinceReferenceDate(0)};
};

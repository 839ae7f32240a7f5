#pragma once

// The assertion facility of the library. A failed assertion never stops the program: it sends
// one error record to the developer logger and the code after it runs on. A passing assertion
// costs only its condition; nothing else is evaluated.
//
// Every site names the operation it sits in, in the form the records carry:
// "-[Class selector:]" for an instance operation, "+[Class selector:]" for a class-level one,
// "+[Class(Extension) selector:]" for an operation of an extension.
//
//   QENAssertNotNil(string, "+[BinaryAnnotation(QENAdditions) annotationWithKey:string:]");
//     -> "The following expression must not evaluate to nil: string"
//   QENParameterAssert(!name.empty(), "metricName", "-[QENMeasuredTask initWithName:...]");
//     -> "Invalid parameter not satisfying: metricName"
//     (the condition is spelled out separately, as the message names it)
//   QENAssert(stopTime >= startTime, "-[...]", "Metric stop time %f must be ...", stop, start);
//     -> the formatted free message
//   QENAssertionFailure("-[...]", "Assertion should not have been reached");
//     -> an unconditional failure

#include "QENAssertionFailureReport.h"
#include "QENFoundation/QENFoundationDevLogger.h"

// The library's build names its own module here, so that its records read
// "QENPerformanceLogger/File.cpp" wherever the sources lie; elsewhere the path decides.
#ifndef QEN_ASSERTION_MODULE_NAME
#define QEN_ASSERTION_MODULE_NAME nullptr
#endif

#define QEN_ASSERTION_SITE(condition, method, ...)                                                 \
  do {                                                                                             \
    if (!(condition)) [[unlikely]] {                                                               \
      if (QENFoundationDevLogger::isFoundationAssertsLoggingEnabled()) {                           \
        AssertionFailureReport(QENFormatAssertionMessage(__VA_ARGS__), method, __LINE__, __FILE__, \
                               QENSourceFileBaseName(__FILE__), QEN_ASSERTION_MODULE_NAME);        \
      }                                                                                            \
    }                                                                                              \
  } while (false)

#define QENAssertNotNil(expression, method)           \
  QEN_ASSERTION_SITE((expression) != nullptr, method, \
                     "The following expression must not evaluate to nil: %s", #expression)

#define QENParameterAssert(condition, conditionText, method) \
  QEN_ASSERTION_SITE(condition, method, "%s", "Invalid parameter not satisfying: " conditionText)

#define QENAssert(condition, method, ...) QEN_ASSERTION_SITE(condition, method, __VA_ARGS__)

#define QENAssertionFailure(method, ...) QEN_ASSERTION_SITE(false, method, __VA_ARGS__)

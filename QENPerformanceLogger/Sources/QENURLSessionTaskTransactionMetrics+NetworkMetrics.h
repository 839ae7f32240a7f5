#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "BinaryAnnotation+QENAdditions.h"
#include "QENURLLoading/QENURLSessionTaskTransactionMetrics.h"

// What the network metrics derive from one transaction: the phases as millisecond offsets from
// the fetch start, durations between them, bytes, speed, IP version and a query-free endpoint
// id. Pure functions of the record, recomputed on every call.
//
// Milliseconds truncate toward zero (1.9999 ms is 1); a phase without a date, or a record
// without a fetch start, reads as 0. Durations are plain 64-bit differences (they may be
// negative: a connection without TLS has a negative "tcp_time"). The calculated annotations
// carry each duration's low 32 bits, read as signed: their wire width.
class QENNetworkMetrics {
 public:
  using Record = QENURLSessionTaskTransactionMetrics;
  using Milliseconds = std::map<std::string, std::int64_t, std::less<>>;
  using AnnotationList = QENThrift::BinaryAnnotationQENAdditions::List;
  using AnnotationPointer = QENThrift::BinaryAnnotationQENAdditions::Pointer;

  // The five connection phases of a transaction, as start and end dates, in the order the
  // metrics report them: name lookup, connection, TLS handshake, request, response.
  struct ConnectionPhase {
    std::optional<QENDate> Record::*start;
    std::optional<QENDate> Record::*end;
  };
  static constexpr std::array<ConnectionPhase, 5> kConnectionPhases = {{
      {&Record::domainLookupStartDate, &Record::domainLookupEndDate},
      {&Record::connectStartDate, &Record::connectEndDate},
      {&Record::secureConnectionStartDate, &Record::secureConnectionEndDate},
      {&Record::requestStartDate, &Record::requestEndDate},
      {&Record::responseStartDate, &Record::responseEndDate},
  }};

  // CDN_NAME and CDN_CACHE from the "x-cdn" and "x-morvane-cache" response headers, each only
  // when present and not empty; `header` looks a header up by name.
  static AnnotationList cdnAnnotations(
      const std::function<std::optional<std::string>(std::string_view name)>& header);

  static std::int64_t toMilliseconds(double seconds);

  static std::int64_t dnsStartInMilliseconds(const Record& record);
  static std::int64_t dnsEndInMilliseconds(const Record& record);
  static std::int64_t tcpStartInMilliseconds(const Record& record);
  static std::int64_t tcpEndInMilliseconds(const Record& record);
  static std::int64_t tlsStartInMilliseconds(const Record& record);
  static std::int64_t reqStartInMilliseconds(const Record& record);
  static std::int64_t respStartInMilliseconds(const Record& record);
  static std::int64_t respEndInMilliseconds(const Record& record);

  static AnnotationPointer dnsStart(const Record& record);
  static AnnotationPointer dnsEnd(const Record& record);
  static AnnotationPointer tcpStart(const Record& record);
  static AnnotationPointer tcpEnd(const Record& record);
  static AnnotationPointer tlsStart(const Record& record);
  static AnnotationPointer reqStart(const Record& record);
  static AnnotationPointer respStart(const Record& record);
  static AnnotationPointer respEnd(const Record& record);

  // The eight offsets by phase key, and the seven durations by name.
  static Milliseconds getConnectionMetricsInMilliseconds(const Record& record);
  static Milliseconds getCalculatedConnectionMetricsInMilliseconds(const Record& record);
  // The eight offsets (full width), the seven durations (32-bit), and both (fifteen).
  static AnnotationList getConnectionMetrics(const Record& record);
  static AnnotationList getCalculatedConnectionMetrics(const Record& record);
  static AnnotationList getAllConnectionMetrics(const Record& record);

  // Header plus body bytes.
  static std::int64_t bytesReceived(const Record& record);
  // Bytes received x 8 over the response phase (first to last byte), in thousands of bits per
  // second, truncated; -1 without both response dates or without a positive response time.
  static std::int32_t kilobitsPerSec(const Record& record);
  static bool isLocalAddressIPV6(const Record& record);
  // 6 for a local address with a colon, else 4 (an absent address too).
  static std::int64_t localAddressIPVersion(const Record& record);
  // The request URL's text without its query; "" without a request URL. Every other part stays
  // exactly as the host gave it.
  static std::string absoluteEndpointId(const Record& record);
};

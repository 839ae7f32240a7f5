package com.qen.performancelogger;

/** Wire formats of an export. */
public enum Format {
  ZIPKIN_V2_JSON,
  /** Zipkin v1 Thrift as a v1 backend reads it. */
  ZIPKIN_V1_THRIFT,
  OTLP_JSON,
  /** For files and chrome://tracing; a reporter does not send it. */
  CHROME_TRACE
}

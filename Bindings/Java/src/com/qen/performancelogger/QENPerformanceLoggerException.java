package com.qen.performancelogger;

/** A call the library refused: a closed object, a bad argument, an export of a running metric. */
public final class QENPerformanceLoggerException extends RuntimeException {
  private static final long serialVersionUID = 1L;

  /** The C interface's status codes. */
  public enum Status { OK, INVALID_HANDLE, INVALID_ARGUMENT, NOT_FINISHED, FAILED }

  private final Status status;

  QENPerformanceLoggerException(Status status, String operation) {
    super(operation + ": " + status);
    this.status = status;
  }

  public Status status() {
    return status;
  }

  /** The handle a create returned; throws for the status a failed one carries instead. */
  static long checkHandle(long handleOrStatus, String operation) {
    if ((handleOrStatus & 0xFFFFFFFFL) == 0) {
      check((int) (handleOrStatus >>> 32), operation);
    }
    return handleOrStatus;
  }

  /** Throws for any status but OK. */
  static void check(int status, String operation) {
    if (status != 0) {
      Status[] known = Status.values();
      throw new QENPerformanceLoggerException(
          status > 0 && status < known.length ? known[status] : Status.FAILED, operation);
    }
  }
}

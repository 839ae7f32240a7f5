package com.qen.performancelogger;

/**
 * Strings go to native code as they are: it reads their UTF-16 and writes UTF-8, a lone surrogate
 * as U+FFFD, as the C interface writes ill-formed UTF-8.
 */
final class Arguments {
  private Arguments() {}

  /** The argument; a null one is a NullPointerException naming it. */
  static <T> T required(T value, String argument) {
    if (value == null) {
      throw new NullPointerException(argument + " must not be null");
    }
    return value;
  }
}

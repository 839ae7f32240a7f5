package com.qen.performancelogger;

import java.nio.charset.StandardCharsets;

/** Strings go to native code as UTF-8 bytes (JNI's own "modified UTF-8" differs from it). */
final class Utf8 {
  private Utf8() {}

  /** The string's bytes; a null one is a NullPointerException naming the argument. */
  static byte[] bytes(String text, String argument) {
    if (text == null) {
      throw new NullPointerException(argument + " must not be null");
    }
    return text.getBytes(StandardCharsets.UTF_8);
  }
}

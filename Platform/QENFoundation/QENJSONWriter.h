#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// Writes compact JSON straight into a string the caller owns and may reuse: no document is built,
// nothing is allocated but the string's own growth, and nothing throws but that growth. The caller
// writes a well-nested sequence (keys only inside objects); the writer places the commas.
//
// Strings are written as JSON needs them: quotes, backslashes and control characters escaped
// (\b \f \n \r \t, else \u00XX), and each ill-formed UTF-8 part replaced by U+FFFD, one per maximal
// subpart (see QENUTF8SequenceAt), so that any bytes make a valid document.
class QENJSONWriter {
 public:
  explicit QENJSONWriter(std::string& out) : out_(out) {}

  void beginObject() { open('{'); }
  void endObject() { close('}'); }
  void beginArray() { open('['); }
  void endArray() { close(']'); }
  void key(std::string_view name);
  void string(std::string_view text);
  void integer(std::int64_t value);
  void boolean(bool value) { literal(value ? "true" : "false"); }
  // A value the caller has already written as JSON (a number's text, say), placed as it is.
  void literal(std::string_view json);
  // Makes room for this many more bytes at once, so that a long document grows in one step.
  void reserveMore(std::size_t bytes);

  // Appends the text as a quoted JSON string.
  static void appendQuoted(std::string& out, std::string_view text);

 private:
  void separate();
  void open(char bracket);
  void close(char bracket);

  std::string& out_;
  bool needsComma_ = false;
};

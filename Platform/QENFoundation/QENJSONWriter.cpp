#include "QENJSONWriter.h"

#include <algorithm>
#include <charconv>

#include "QENUTF8Validation.h"

namespace {

constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";

bool isPlain(unsigned char byte) {
  return byte >= 0x20 && byte < 0x80 && byte != '"' && byte != '\\';
}

void appendEscapedControlOrQuote(std::string& out, char character) {
  static constexpr char kHexDigits[] = "0123456789abcdef";
  switch (character) {
    case '"':
      out += "\\\"";
      break;
    case '\\':
      out += "\\\\";
      break;
    case '\b':
      out += "\\b";
      break;
    case '\f':
      out += "\\f";
      break;
    case '\n':
      out += "\\n";
      break;
    case '\r':
      out += "\\r";
      break;
    case '\t':
      out += "\\t";
      break;
    default:
      out += "\\u00";
      out += kHexDigits[(character >> 4) & 0x0F];
      out += kHexDigits[character & 0x0F];
  }
}

}  // namespace

void QENJSONWriter::appendQuoted(std::string& out, std::string_view text) {
  out += '"';
  std::size_t index = 0;
  while (index < text.size()) {
    std::size_t runEnd = index;
    while (runEnd < text.size() && isPlain(static_cast<unsigned char>(text[runEnd]))) {
      ++runEnd;
    }
    out.append(text.data() + index, runEnd - index);
    index = runEnd;
    if (index == text.size()) {
      break;
    }
    if (static_cast<unsigned char>(text[index]) < 0x80) {
      appendEscapedControlOrQuote(out, text[index++]);
      continue;
    }
    const QENUTF8Sequence sequence = QENUTF8SequenceAt(text, index);
    if (sequence.wellFormed) {
      out.append(text.data() + index, sequence.length);
    } else {
      out += kReplacementCharacter;
    }
    index += sequence.length;
  }
  out += '"';
}

void QENJSONWriter::reserveMore(std::size_t bytes) {
  const std::size_t needed = out_.size() + bytes;
  if (needed > out_.capacity()) {
    // Doubling at least: a reserve of exactly what is needed (libc++'s) on every call would copy
    // the whole document each time.
    out_.reserve(std::max(needed, 2 * out_.capacity()));
  }
}

void QENJSONWriter::separate() {
  if (needsComma_) {
    out_ += ',';
  }
}

void QENJSONWriter::open(char bracket) {
  separate();
  out_ += bracket;
  needsComma_ = false;
}

void QENJSONWriter::close(char bracket) {
  out_ += bracket;
  needsComma_ = true;
}

void QENJSONWriter::key(std::string_view name) {
  separate();
  appendQuoted(out_, name);
  out_ += ':';
  needsComma_ = false;
}

void QENJSONWriter::string(std::string_view text) {
  separate();
  appendQuoted(out_, text);
  needsComma_ = true;
}

void QENJSONWriter::literal(std::string_view json) {
  separate();
  out_.append(json);
  needsComma_ = true;
}

void QENJSONWriter::integer(std::int64_t value) {
  separate();
  char digits[24];
  const auto end = std::to_chars(std::begin(digits), std::end(digits), value).ptr;
  out_.append(digits, end);
  needsComma_ = true;
}

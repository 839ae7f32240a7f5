#include "QENFormat.h"

#include <clocale>
#include <cstdio>
#if defined(__APPLE__)
#include <xlocale.h>
#else
#include <locale.h>
#endif

namespace {

// The "C" numeric conventions, made once and kept for the life of the process.
locale_t cNumericLocale() {
  static const locale_t locale = newlocale(LC_NUMERIC_MASK, "C", static_cast<locale_t>(0));
  return locale;
}

// Switches the calling thread, and only it, to the "C" numeric conventions while it lives.
class CNumericScope {
 public:
  CNumericScope() : previous_(cNumericLocale() ? uselocale(cNumericLocale()) : nullptr) {}
  ~CNumericScope() {
    if (previous_ != static_cast<locale_t>(0)) {
      uselocale(previous_);
    }
  }
  CNumericScope(const CNumericScope&) = delete;
  CNumericScope& operator=(const CNumericScope&) = delete;

 private:
  locale_t previous_;
};

}  // namespace

namespace QENFoundation {

std::string formatStringV(const char* format, std::va_list arguments) {
  const CNumericScope numbersWithADot;
  std::va_list measuring;
  va_copy(measuring, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, measuring);
  va_end(measuring);
  std::string text;
  if (length > 0) {
    text.resize(static_cast<std::size_t>(length));
    std::vsnprintf(text.data(), text.size() + 1, format, arguments);
  }
  return text;
}

std::string formatString(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::string text = formatStringV(format, arguments);
  va_end(arguments);
  return text;
}

}  // namespace QENFoundation

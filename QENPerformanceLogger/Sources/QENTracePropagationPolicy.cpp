#include "QENTracePropagationPolicy.h"

#include <cctype>

#include "QENAssert.h"

namespace {

std::string lowerCasedWithoutOuterDots(std::string_view host) {
  while (!host.empty() && host.front() == '.') {
    host.remove_prefix(1);
  }
  while (!host.empty() && host.back() == '.') {
    host.remove_suffix(1);
  }
  std::string lowered(host);
  for (char& character : lowered) {
    character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
  }
  return lowered;
}

bool couldBeAHostSuffix(std::string_view suffix) {
  constexpr std::string_view kNeverInAHost = " \t\r\n:/@?#*";
  return !suffix.empty() && suffix.find_first_of(kNeverInAHost) == std::string_view::npos;
}

}  // namespace

QENTracePropagationPolicy::QENTracePropagationPolicy(const std::vector<std::string>& hostSuffixes) {
  for (const std::string& entry : hostSuffixes) {
    if (entry == "*") {
      everyHost_ = true;
      suffixes_.push_back(entry);
      continue;
    }
    // "*.example.com" is read as the suffix it spells.
    std::string suffix = lowerCasedWithoutOuterDots(
        entry.starts_with("*.") ? std::string_view(entry).substr(1) : std::string_view(entry));
    QENParameterAssert(couldBeAHostSuffix(suffix), "a host suffix is a host name or its end",
                       "-[QENTracePropagationPolicy initWithHostSuffixes:]");
    if (couldBeAHostSuffix(suffix)) {
      suffixes_.push_back(std::move(suffix));
    }
  }
}

bool QENTracePropagationPolicy::allowsHost(std::string_view host) const {
  if (everyHost_) {
    return true;
  }
  const std::string lowered = lowerCasedWithoutOuterDots(host);
  for (const std::string& suffix : suffixes_) {
    if (lowered.ends_with(suffix) &&
        (lowered.size() == suffix.size() || lowered[lowered.size() - suffix.size() - 1] == '.')) {
      return true;
    }
  }
  return false;
}

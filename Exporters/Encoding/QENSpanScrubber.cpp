#include "QENSpanScrubber.h"

#include <algorithm>
#include <utility>

#include "QENSpanReading.h"

namespace {

using QENThrift::AnnotationType;
using QENThrift::BinaryAnnotation;
constexpr std::size_t kNone = std::string_view::npos;

bool isLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isSchemeCharacter(char c) {
  return isLetter(c) || (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.';
}

// Where the authority of a "scheme://" URL begins; kNone for any other text.
std::size_t authorityStart(std::string_view text) {
  if (text.empty() || !isLetter(text.front())) {
    return kNone;
  }
  std::size_t index = 1;
  while (index < text.size() && isSchemeCharacter(text[index])) {
    ++index;
  }
  return text.substr(index, 3) == "://" ? index + 3 : kNone;
}

std::string_view textOf(const BinaryAnnotation::Bytes& bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

BinaryAnnotation stringTag(const BinaryAnnotation& tag, std::string_view value) {
  const auto* bytes = reinterpret_cast<const std::byte*>(value.data());
  return BinaryAnnotation(tag.key(), BinaryAnnotation::Bytes(bytes, bytes + value.size()),
                          AnnotationType::STRING, tag.host());
}

}  // namespace

QENSpanScrubber::QENSpanScrubber(QENSpanScrubbingOptions options) : options_(std::move(options)) {}

std::optional<std::string> QENSpanScrubber::scrubbedURL(std::string_view text) const {
  const std::size_t authority = authorityStart(text);
  if (authority == kNone) {
    return std::nullopt;
  }
  const std::size_t authorityEnd = std::min(text.find_first_of("/?#", authority), text.size());
  const std::size_t at = text.substr(authority, authorityEnd - authority).rfind('@');
  const std::size_t host = at == kNone ? authority : authority + at + 1;
  const std::size_t fragment = std::min(text.find('#', authorityEnd), text.size());
  const std::size_t query = std::min(text.substr(0, fragment).find('?', authorityEnd), fragment);
  if (at == kNone && query == text.size()) {
    return std::nullopt;
  }
  std::string url;
  url.reserve(text.size());
  url.append(text.substr(0, authority)).append(text.substr(host, query - host));
  if (query < fragment) {
    url += '?';
    appendScrubbedQuery(url, text.substr(query + 1, fragment - query - 1));
  }
  return url;
}

void QENSpanScrubber::appendScrubbedQuery(std::string& url, std::string_view query) const {
  for (std::size_t start = 0;;) {
    const std::size_t end = std::min(query.find_first_of("&;", start), query.size());
    const std::string_view pair = query.substr(start, end - start);
    const std::size_t equals = pair.find('=');
    const std::string_view key = pair.substr(0, equals);
    const std::string_view value = equals == kNone ? key : pair.substr(equals + 1);
    if (equals != kNone) {
      url.append(key) += '=';
    }
    // A pair without "=" is a value with no key: it may be a token as well.
    url.append(value.empty() || keepsValueOf(key) ? value : kMarker);
    if (end == query.size()) {
      return;
    }
    url += query[end];
    start = end + 1;
  }
}

std::optional<std::string> QENSpanScrubber::scrubbedPath(std::string_view text) const {
  const std::size_t query = text.find('?');
  if (query == kNone) {
    return std::nullopt;
  }
  const std::size_t fragment = std::min(text.find('#', query), text.size());
  std::string path(text.substr(0, query + 1));
  appendScrubbedQuery(path, text.substr(query + 1, fragment - query - 1));
  return path;
}

std::optional<std::string> QENSpanScrubber::scrubbedName(std::string_view name) const {
  std::optional<std::string> scrubbed;
  if (options_.scrubURLs) {
    scrubbed = authorityStart(name) != kNone ? scrubbedURL(name) : scrubbedPath(name);
  }
  if (options_.tagFilter) {
    std::string value(scrubbed ? std::string_view(*scrubbed) : name);
    if (!options_.tagFilter(kSpanNameKey, value)) {
      value = kMarker;
    }
    if (value != name) {
      scrubbed = std::move(value);
    }
  }
  return scrubbed;
}

std::string QENSpanScrubber::loggableURL(std::string_view url) {
  const std::string scrubbed = QENSpanScrubber().scrubbedURL(url).value_or(std::string(url));
  return scrubbed.substr(0, scrubbed.find_first_of("?#"));
}

bool QENSpanScrubber::keepsValueOf(std::string_view key) const {
  return std::find(options_.keptQueryKeys.begin(), options_.keptQueryKeys.end(), key) !=
         options_.keptQueryKeys.end();
}

QENSpanScrubber::Outcome QENSpanScrubber::scrub(const BinaryAnnotation& tag,
                                                BinaryAnnotation& changed) const {
  Outcome outcome = Outcome::kUnchanged;
  if (options_.scrubURLs && tag.annotation_type() == AnnotationType::STRING && tag.value()) {
    if (const auto url = scrubbedURL(textOf(*tag.value()))) {
      changed = stringTag(tag, *url);
      outcome = Outcome::kChanged;
    }
  }
  return options_.tagFilter ? filter(tag, changed, outcome) : outcome;
}

QENSpanScrubber::Outcome QENSpanScrubber::filter(const BinaryAnnotation& tag,
                                                 BinaryAnnotation& changed, Outcome sofar) const {
  const BinaryAnnotation& current = sofar == Outcome::kChanged ? changed : tag;
  if (!QENSpanReading::hasReadableValue(current)) {
    return sofar;  // no encoder writes it
  }
  std::string scratch;
  const std::string before(QENSpanReading::tagText(current, scratch));
  std::string value = before;
  if (!options_.tagFilter(current.key(), value)) {
    return Outcome::kDropped;
  }
  if (value == before) {
    return sofar;
  }
  changed = stringTag(current, value);
  return Outcome::kChanged;
}

const BinaryAnnotation* QENSpanScrubber::scrubbed(const BinaryAnnotation& tag,
                                                  std::deque<BinaryAnnotation>& changed) const {
  BinaryAnnotation copy;
  switch (scrub(tag, copy)) {
    case Outcome::kUnchanged:
      return &tag;
    case Outcome::kChanged:
      return &changed.emplace_back(std::move(copy));
    case Outcome::kDropped:
      break;
  }
  return nullptr;
}

void QENSpanScrubber::scrubEach(std::vector<const BinaryAnnotation*>& tags,
                                std::deque<BinaryAnnotation>& changed) const {
  std::size_t kept = 0;
  for (const BinaryAnnotation* tag : tags) {
    if (const BinaryAnnotation* leaving = scrubbed(*tag, changed)) {
      tags[kept++] = leaving;
    }
  }
  tags.resize(kept);
}

#include "QENURL.h"

#include <uriparser/Uri.h>

#include <algorithm>

namespace {

// Owns a parsed URI and frees it on every path out.
class ParsedUri {
 public:
  explicit ParsedUri(std::string_view text) {
    const char* errorPosition = nullptr;
    parsed_ = uriParseSingleUriExA(&uri_, text.data(), text.data() + text.size(), &errorPosition) ==
              URI_SUCCESS;
  }
  ~ParsedUri() {
    if (parsed_) {
      uriFreeUriMembersA(&uri_);
    }
  }
  ParsedUri(const ParsedUri&) = delete;
  ParsedUri& operator=(const ParsedUri&) = delete;

  bool isParsed() const { return parsed_; }
  const UriUriA& uri() const { return uri_; }

 private:
  UriUriA uri_{};
  bool parsed_ = false;
};

// RFC 3986 leaves no choice once a reference is known to be valid: the authority follows "//"
// up to the first "/", "?" or "#"; the path runs to the first "?" or "#"; a "?" there opens the
// query, which runs to the first "#".
std::size_t pathStart(std::string_view text, const UriUriA& uri) {
  std::size_t position = uri.scheme.first == nullptr
                             ? 0
                             : static_cast<std::size_t>(uri.scheme.afterLast - text.data()) + 1;
  if (text.substr(position, 2) == "//") {
    position = std::min(text.find_first_of("/?#", position + 2), text.size());
  }
  return position;
}

}  // namespace

std::shared_ptr<const QENURL> QENURL::URLWithString(std::string_view text) {
  if (text.empty()) {
    return nullptr;
  }
  const ParsedUri parsed(text);
  if (!parsed.isParsed()) {
    return nullptr;
  }
  const UriUriA& uri = parsed.uri();
  Range host;
  // uriparser points an empty host ("https:///p") at a static empty string, not into the text.
  if (uri.hostText.first != nullptr && uri.hostText.first >= text.data() &&
      uri.hostText.afterLast <= text.data() + text.size()) {
    host = {static_cast<std::size_t>(uri.hostText.first - text.data()),
            static_cast<std::size_t>(uri.hostText.afterLast - text.data())};
  }
  const std::size_t start = pathStart(text, uri);
  const Range path{start, std::min(text.find_first_of("?#", start), text.size())};
  std::optional<Range> query;
  if (path.afterLast < text.size() && text[path.afterLast] == '?') {
    query = Range{path.afterLast, std::min(text.find('#', path.afterLast), text.size())};
  }
  return std::shared_ptr<const QENURL>(new QENURL(std::string(text), host, path, query));
}

std::string QENURL::host() const {
  return absoluteString_.substr(host_.first, host_.afterLast - host_.first);
}

std::string QENURL::relativePath() const {
  return absoluteString_.substr(path_.first, path_.afterLast - path_.first);
}

std::string QENURL::absoluteStringRemovingQuery() const {
  if (!query_) {
    return absoluteString_;
  }
  return absoluteString_.substr(0, query_->first) + absoluteString_.substr(query_->afterLast);
}

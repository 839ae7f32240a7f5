#include "QENURL.h"

#include <uriparser/Uri.h>

#include <vector>

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
  UriUriA& uri() { return uri_; }

  bool writeTo(std::string& text) const;

 private:
  UriUriA uri_{};
  bool parsed_ = false;
};

bool writeUri(const UriUriA& uri, std::string& text) {
  int length = 0;
  if (uriToStringCharsRequiredA(&uri, &length) != URI_SUCCESS) {
    return false;
  }
  std::vector<char> buffer(static_cast<std::size_t>(length) + 1);
  if (uriToStringA(buffer.data(), &uri, length + 1, nullptr) != URI_SUCCESS) {
    return false;
  }
  text.assign(buffer.data());
  return true;
}

bool ParsedUri::writeTo(std::string& text) const {
  return writeUri(uri_, text);
}

}  // namespace

std::string QENURL::host() const {
  ParsedUri parsed(absoluteString_);
  if (!parsed.isParsed() || parsed.uri().hostText.first == nullptr) {
    return {};
  }
  return std::string(parsed.uri().hostText.first, parsed.uri().hostText.afterLast);
}

std::string QENURL::relativePath() const {
  ParsedUri parsed(absoluteString_);
  if (!parsed.isParsed()) {
    return {};
  }
  // Writes back a shallow copy that keeps only the path (rooted if the URL had a host).
  UriUriA pathOnly = parsed.uri();
  const bool hasHost = pathOnly.hostText.first != nullptr;
  pathOnly.absolutePath =
      pathOnly.absolutePath == URI_TRUE || (hasHost && pathOnly.pathHead != nullptr) ? URI_TRUE
                                                                                     : URI_FALSE;
  pathOnly.scheme = pathOnly.userInfo = pathOnly.hostText = pathOnly.portText = UriTextRangeA{};
  pathOnly.hostData = UriHostDataA{};
  pathOnly.query = pathOnly.fragment = UriTextRangeA{};
  std::string path;
  return writeUri(pathOnly, path) ? path : std::string();
}

std::optional<std::string> QENURL::absoluteStringRemovingQuery() const {
  ParsedUri parsed(absoluteString_);
  if (!parsed.isParsed()) {
    return std::nullopt;
  }
  UriUriA withoutQuery = parsed.uri();
  withoutQuery.query = UriTextRangeA{};
  std::string text;
  if (!writeUri(withoutQuery, text)) {
    return std::nullopt;
  }
  return text;
}

std::shared_ptr<const QENURL> QENURL::URLWithString(std::string_view text) {
  if (text.empty()) {
    return nullptr;
  }
  const ParsedUri uri(text);
  std::string serialised;
  if (!uri.isParsed() || !uri.writeTo(serialised)) {
    return nullptr;
  }
  return std::shared_ptr<const QENURL>(new QENURL(std::move(serialised)));
}

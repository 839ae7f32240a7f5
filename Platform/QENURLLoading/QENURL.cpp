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

  bool writeTo(std::string& text) const {
    int length = 0;
    if (uriToStringCharsRequiredA(&uri_, &length) != URI_SUCCESS) {
      return false;
    }
    std::vector<char> buffer(static_cast<std::size_t>(length) + 1);
    if (uriToStringA(buffer.data(), &uri_, length + 1, nullptr) != URI_SUCCESS) {
      return false;
    }
    text.assign(buffer.data());
    return true;
  }

 private:
  UriUriA uri_{};
  bool parsed_ = false;
};

}  // namespace

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

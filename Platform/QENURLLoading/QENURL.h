#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

// An immutable URL: a string that parses as a URI reference under RFC 3986 (by uriparser). The
// text is kept exactly as the host gave it: the parser only finds where its parts lie, it never
// writes the URL back (a writer would, for example, expand an IPv6 host). Two URLs are equal
// when their texts are equal.
class QENURL {
 public:
  // The URL of a string, or null when the string is empty or does not parse.
  static std::shared_ptr<const QENURL> URLWithString(std::string_view text);

  const std::string& absoluteString() const noexcept { return absoluteString_; }
  // The host as written, without the brackets of an IP literal ("::1" for "http://[::1]/");
  // "" without one.
  std::string host() const;
  // The path as it stands in the URL (not percent-decoded, trailing slash kept): "/users/me/"
  // for "https://h/users/me/?x=1"; "" for a URL without path.
  std::string relativePath() const;
  // The URL without its query (no "?" either); everything else byte for byte as given.
  std::string absoluteStringRemovingQuery() const;

  friend bool operator==(const QENURL& left, const QENURL& right) {
    return left.absoluteString_ == right.absoluteString_;
  }

 private:
  // Where the parts lie in the text, as offsets [first, afterLast).
  struct Range {
    std::size_t first = 0;
    std::size_t afterLast = 0;
  };

  QENURL(std::string text, Range host, Range path, std::optional<Range> query)
      : absoluteString_(std::move(text)), host_(host), path_(path), query_(query) {}

  std::string absoluteString_;
  Range host_;
  Range path_;
  std::optional<Range> query_;  // from the "?" to the fragment or the end
};

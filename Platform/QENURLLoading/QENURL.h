#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

// An immutable URL: a string that parses as a URI reference under RFC 3986 (by uriparser),
// kept in the form uriparser writes it back. Two URLs are equal when those forms are equal.
class QENURL {
 public:
  // The URL of a string, or null when the string is empty or does not parse.
  static std::shared_ptr<const QENURL> URLWithString(std::string_view text);

  const std::string& absoluteString() const noexcept { return absoluteString_; }
  // The host without brackets ("::1" for "http://[::1]/"); "" without one.
  std::string host() const;
  // The path as it stands in the URL (not percent-decoded, trailing slash kept): "/users/me/"
  // for "https://h/users/me/?x=1"; "" for a URL without path.
  std::string relativePath() const;
  // The URL written back without its query (no "?" either); everything else byte for byte.
  // Absent if the URL cannot be written back.
  std::optional<std::string> absoluteStringRemovingQuery() const;

  friend bool operator==(const QENURL& left, const QENURL& right) {
    return left.absoluteString_ == right.absoluteString_;
  }

 private:
  explicit QENURL(std::string absoluteString) : absoluteString_(std::move(absoluteString)) {}

  std::string absoluteString_;
};

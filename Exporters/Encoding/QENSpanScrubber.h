#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "QENThrift/BinaryAnnotation.h"

// What is taken out of a span's tags before it is encoded or persisted. On by default: a span
// records what the app asked for, and request URLs carry what the user typed or the server
// signed (a "user:password@", a token in the query or the fragment).
struct QENSpanScrubbingOptions {
  // Every string tag that is a URL with an authority ("scheme://...") loses its user
  // information and its fragment, and each query value becomes "redacted" (the keys stay, so a
  // trace still tells which parameters a request had); pairs are separated by '&' or ';'. A span
  // name is scrubbed the same way, and so is a path with a query in it ("resource_/a?token=x",
  // an endpoint span's name being its request's path). Off: URLs leave as the app made them.
  bool scrubURLs = true;
  // Query keys whose values may stay, matched exactly as written (case and percent-encoding
  // included), for example {"size", "page"}.
  std::vector<std::string> keptQueryKeys{};
  // Sees each tag about to leave, after the URL scrubbing: its key and its value as the JSON
  // formats write it ("true", "42", a string). Returns false to drop the tag; a value it changes
  // leaves as a string tag. It also sees each span's name, under the key "span.name": a name it
  // refuses leaves as "redacted", a name it changes leaves changed. Called on whatever thread
  // encodes (the reporter's, the watcher's), possibly several at once, so it must be safe to call
  // from any thread.
  std::function<bool(std::string_view key, std::string& value)> tagFilter{};
};

// Applies QENSpanScrubbingOptions to one tag at a time. Scrubbing is textual, not a URL parse:
// a value that no strict parser accepts (a space in the query, say) is still a URL a server
// reads, and must lose its secrets all the same.
class QENSpanScrubber {
 public:
  using BinaryAnnotation = QENThrift::BinaryAnnotation;
  enum class Outcome { kUnchanged, kChanged, kDropped };

  // Stands in for each query value that may not stay.
  static constexpr std::string_view kMarker = "redacted";

  explicit QENSpanScrubber(QENSpanScrubbingOptions options = {});

  // Whether anything is to be scrubbed at all.
  bool isActive() const noexcept { return options_.scrubURLs || options_.tagFilter != nullptr; }
  // Whether `tag` may leave as it is, must leave as `changed` (then written there), or not at all.
  Outcome scrub(const BinaryAnnotation& tag, BinaryAnnotation& changed) const;
  // `tag` as it may leave: itself, its changed copy added to `changed` (where entries stay put),
  // or nullptr when it is dropped.
  const BinaryAnnotation* scrubbed(const BinaryAnnotation& tag,
                                   std::deque<BinaryAnnotation>& changed) const;
  // Scrubs a list of tags in place: a changed tag's entry then points to its copy, added to
  // `changed` (where entries stay put), and a dropped tag's entry is gone.
  void scrubEach(std::vector<const BinaryAnnotation*>& tags,
                 std::deque<BinaryAnnotation>& changed) const;
  // `text` without user information and fragment and with its query values redacted; nullopt when
  // it is no URL with an authority, or has nothing to take out.
  std::optional<std::string> scrubbedURL(std::string_view text) const;
  // A span's name as it may leave; nullopt when it leaves as it is.
  std::optional<std::string> scrubbedName(std::string_view name) const;
  // The key under which the tag filter sees a span's name.
  static constexpr std::string_view kSpanNameKey = "span.name";
  // A URL as the library's own log lines show it: without user information, query and fragment.
  static std::string loggableURL(std::string_view url);

 private:
  void appendScrubbedQuery(std::string& url, std::string_view query) const;
  // A path (or any text without an authority) with its query values redacted and its fragment
  // gone; nullopt without a query.
  std::optional<std::string> scrubbedPath(std::string_view text) const;
  bool keepsValueOf(std::string_view key) const;
  Outcome filter(const BinaryAnnotation& tag, BinaryAnnotation& changed, Outcome sofar) const;

  QENSpanScrubbingOptions options_;
};

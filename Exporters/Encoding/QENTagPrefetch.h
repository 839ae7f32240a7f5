#pragma once

#include <cstddef>
#include <span>

#include "QENThrift/BinaryAnnotation.h"

// A span's tags are objects spread over the heap, each with its value in an allocation of its
// own. A walk over thousands of them would wait on memory at every tag; asking for the tags a
// few places ahead lets their memory arrive while the current one is worked on, so that a tag of
// a 10,000-tag span costs what a tag of a 100-tag span does. Hints only: they change no result.

inline void QENPrefetch(const void* address) noexcept {
#if defined(__GNUC__)  // g++ and clang
  __builtin_prefetch(address);
#else
  static_cast<void>(address);
#endif
}

// Every cache line a tag's object lies on (64 bytes a line, as most cores have; where lines are
// longer, some asks are for the same line). A span's list may hold null tags.
inline void QENPrefetchTag(const QENThrift::BinaryAnnotation* tag) noexcept {
  constexpr std::size_t kLineBytes = 64;
  if (tag == nullptr) {
    return;
  }
  const auto* bytes = reinterpret_cast<const char*>(tag);
  for (std::size_t offset = 0; offset < sizeof(*tag); offset += kLineBytes) {
    QENPrefetch(bytes + offset);
  }
  QENPrefetch(bytes + sizeof(*tag) - 1);
}

// Called at each `index` of a walk over `tags`: the object 32 tags on, and the value of the tag 16
// on, whose object the call 16 tags ago asked for.
inline void QENPrefetchTagsAhead(std::span<const QENThrift::BinaryAnnotation* const> tags,
                                 std::size_t index) noexcept {
  constexpr std::size_t kObjectsAhead = 32;
  constexpr std::size_t kValuesAhead = 16;
  if (index + kObjectsAhead < tags.size()) {
    QENPrefetchTag(tags[index + kObjectsAhead]);
  }
  if (index + kValuesAhead < tags.size() && tags[index + kValuesAhead]->value()) {
    QENPrefetch(tags[index + kValuesAhead]->value()->data());
  }
}

// Calls `visit` with each tag of `tags` in order, asking for the tags ahead as it goes.
template <class Visit>
void QENVisitTagsPrefetching(std::span<const QENThrift::BinaryAnnotation* const> tags,
                             const Visit& visit) {
  for (std::size_t index = 0; index < tags.size(); ++index) {
    QENPrefetchTagsAhead(tags, index);
    visit(*tags[index]);
  }
}

#pragma once

#include <cstdint>
#include <string>

#include "EventContext.h"

namespace QENThrift {

// The host's context-logging event, as far as the library reads it: its type and its context.
// Metrics store events and hand them to callbacks; they never change them.
class Event {
 public:
  std::int32_t eventType() const noexcept { return eventType_; }
  bool eventTypeIsSet() const noexcept { return eventTypeIsSet_; }
  void setEventType(std::int32_t value) noexcept { eventType_ = value, eventTypeIsSet_ = true; }

  const EventContext& context() const noexcept { return context_; }
  bool contextIsSet() const noexcept { return contextIsSet_; }
  void setContext(const EventContext& value) noexcept { context_ = value, contextIsSet_ = true; }

  // "Event(eventType:102,context:EventContext(viewType:3,viewParameter:unset,...))"; fields
  // that are not set print as "unset".
  std::string debugDescription() const;

 private:
  std::int32_t eventType_ = 0;
  bool eventTypeIsSet_ = false;
  bool contextIsSet_ = false;
  EventContext context_;
};

}  // namespace QENThrift

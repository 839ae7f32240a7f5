#include "Event.h"

namespace QENThrift {
namespace {

std::string fieldText(bool isSet, std::int32_t value) {
  return isSet ? std::to_string(value) : "unset";
}

std::string contextText(const EventContext& context) {
  return "EventContext(viewType:" + fieldText(context.viewTypeIsSet(), context.viewType()) +
         ",viewParameter:" + fieldText(context.viewParameterIsSet(), context.viewParameter()) +
         ",component:" + fieldText(context.componentIsSet(), context.component()) +
         ",element:" + fieldText(context.elementIsSet(), context.element()) + ")";
}

}  // namespace

std::string Event::debugDescription() const {
  return "Event(eventType:" + fieldText(eventTypeIsSet_, eventType_) +
         ",context:" + (contextIsSet_ ? contextText(context_) : std::string("unset")) + ")";
}

}  // namespace QENThrift

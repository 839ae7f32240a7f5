#pragma once

#include <cstdint>

namespace QENThrift {

// Where a host's logging event happened: the view and the element in it. Each field carries an
// is-set flag, as the host's generated logging model does; a setter sets the flag.
class EventContext {
 public:
  std::int32_t viewType() const noexcept { return viewType_; }
  bool viewTypeIsSet() const noexcept { return viewTypeIsSet_; }
  void setViewType(std::int32_t value) noexcept { viewType_ = value, viewTypeIsSet_ = true; }

  std::int32_t viewParameter() const noexcept { return viewParameter_; }
  bool viewParameterIsSet() const noexcept { return viewParameterIsSet_; }
  void setViewParameter(std::int32_t value) noexcept {
    viewParameter_ = value, viewParameterIsSet_ = true;
  }

  std::int32_t component() const noexcept { return component_; }
  bool componentIsSet() const noexcept { return componentIsSet_; }
  void setComponent(std::int32_t value) noexcept { component_ = value, componentIsSet_ = true; }

  std::int32_t element() const noexcept { return element_; }
  bool elementIsSet() const noexcept { return elementIsSet_; }
  void setElement(std::int32_t value) noexcept { element_ = value, elementIsSet_ = true; }

 private:
  std::int32_t viewType_ = 0;
  std::int32_t viewParameter_ = 0;
  std::int32_t component_ = 0;
  std::int32_t element_ = 0;
  bool viewTypeIsSet_ = false;
  bool viewParameterIsSet_ = false;
  bool componentIsSet_ = false;
  bool elementIsSet_ = false;
};

}  // namespace QENThrift

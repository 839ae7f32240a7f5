#include "QENUTF8Validation.h"

namespace {

// The lead bytes of multi-byte sequences, with how many continuation bytes follow and the range
// the first of them must fall in: that range is what rules out overlong forms, surrogates and code
// points past U+10FFFF. Every later continuation byte is 0x80 to 0xBF.
struct LeadRule {
  unsigned char leadLow, leadHigh;
  std::size_t continuations;
  unsigned char firstLow, firstHigh;
};
constexpr LeadRule kLeadRules[] = {
    {0xC2, 0xDF, 1, 0x80, 0xBF}, {0xE0, 0xE0, 2, 0xA0, 0xBF}, {0xE1, 0xEC, 2, 0x80, 0xBF},
    {0xED, 0xED, 2, 0x80, 0x9F}, {0xEE, 0xEF, 2, 0x80, 0xBF}, {0xF0, 0xF0, 3, 0x90, 0xBF},
    {0xF1, 0xF3, 3, 0x80, 0xBF}, {0xF4, 0xF4, 3, 0x80, 0x8F},
};

const LeadRule* ruleForLead(unsigned char lead) noexcept {
  for (const LeadRule& rule : kLeadRules) {
    if (lead >= rule.leadLow && lead <= rule.leadHigh) {
      return &rule;
    }
  }
  return nullptr;
}

}  // namespace

QENUTF8Sequence QENUTF8SequenceAt(std::string_view bytes, std::size_t index) noexcept {
  const auto lead = static_cast<unsigned char>(bytes[index]);
  if (lead < 0x80) {
    return {1, true};
  }
  const LeadRule* const rule = ruleForLead(lead);
  if (rule == nullptr) {
    return {1, false};
  }
  for (std::size_t offset = 1; offset <= rule->continuations; ++offset) {
    if (index + offset >= bytes.size()) {
      return {offset, false};
    }
    const auto next = static_cast<unsigned char>(bytes[index + offset]);
    const unsigned char low = offset == 1 ? rule->firstLow : 0x80;
    const unsigned char high = offset == 1 ? rule->firstHigh : 0xBF;
    if (next < low || next > high) {
      return {offset, false};
    }
  }
  return {rule->continuations + 1, true};
}

bool QENIsValidUTF8(std::string_view bytes) noexcept {
  for (std::size_t index = 0; index < bytes.size();) {
    if (static_cast<unsigned char>(bytes[index]) < 0x80) {  // most keys and values are ASCII
      ++index;
      continue;
    }
    const QENUTF8Sequence sequence = QENUTF8SequenceAt(bytes, index);
    if (!sequence.wellFormed) {
      return false;
    }
    index += sequence.length;
  }
  return true;
}

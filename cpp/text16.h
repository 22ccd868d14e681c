// The preprocessor's text: zero-ended sequences of 16-bit units.
//
// Units 0 to 255 are the bytes of the source. A handful of units above them mark places inside
// macro bodies and expansion text; they never reach the output. Sixteen bits are enough for both,
// so a body needs no escapes and a marker can never be mistaken for something the user wrote.
#pragma once

namespace kv::cpp {

using unit = char16_t;

/// In a body, behind a run of digits pasted by `##`: the definition's own MARK_PASTE. It differs
/// from one that the user wrote in that nothing need follow it.
inline constexpr int MARK_DIGITS_END = 0x7F1B;
/// In a body, where the `#` operator stood; the parameter reference it applies to follows.
inline constexpr int MARK_STRINGIZE = 0x7F1C;
/// Directly before an identifier that must not be expanded; scans as a letter, so no name matches.
inline constexpr int MARK_NOEXPAND = 0x7F1D;
/// Where `##` stood; scans as white space, and the rescan pastes at it.
inline constexpr int MARK_PASTE = 0x7F1E;
/// Delivered once by the reader when the replacement text of a macro is used up.
inline constexpr int MARK_EXP_END = 0x7F1F;
/// In a body, a reference to parameter n is the unit MARK_PARAM_BASE + n.
inline constexpr int MARK_PARAM_BASE = 0x7F7F;
/// The last unit that the reader takes for a parameter reference.
inline constexpr int MARK_PARAM_LAST = MARK_PARAM_BASE + 32;

/// Whether the output routines drop the unit `c`.
constexpr bool is_dropped_marker(int c) {
  return c >= MARK_NOEXPAND && c <= MARK_EXP_END;
}

/// Whether `c` refers to a macro parameter.
constexpr bool is_param_ref(int c) {
  return c >= MARK_PARAM_BASE && c <= MARK_PARAM_LAST;
}

}  // namespace kv::cpp

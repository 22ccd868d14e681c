// The compatibility mode: which other compiler or tool the program behaves like.
//
// One mode is current at a time. Each mode is one bit, so that a caller can ask for several at
// once.
#pragma once

namespace kv {

inline constexpr unsigned CMODE_NONE = 0;  ///< after an unknown name
inline constexpr unsigned CMODE_LVX = 1;
inline constexpr unsigned CMODE_R20 = 2;
inline constexpr unsigned CMODE_R20E = 4;
inline constexpr unsigned CMODE_TSASM = 8;
inline constexpr unsigned CMODE_TSLINK = 16;
inline constexpr unsigned CMODE_TSLIB = 32;
inline constexpr unsigned CMODE_SSC = 64;
inline constexpr unsigned CMODE_OVK = 128;

/// Makes the mode with this short name (exact case) current and returns it. An unknown name prints
/// "Unknown cmode (%s)" and leaves no mode: the result is CMODE_NONE. A null name counts as unknown
/// and is an internal error when consistency checks are on.
unsigned cmode_set(const char* opt);

/// Returns the current mode, CMODE_LVX at first.
unsigned cmode_get();

/// Returns those of the given bits that are the current mode, so non-zero for a match.
unsigned cmode_is(unsigned modes);

}  // namespace kv

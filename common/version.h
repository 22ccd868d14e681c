// The identity of this build, in one place.
//
// The stamp is the only date in the program: the banner's two dates, and the version by which the
// built-in catalogue competes with message files, all come from it. No clock enters the binary, so
// the same sources always build the same program.
#pragma once

#include <string>

namespace kv {

/// The build's date and time as 14 decimal digits YYYYMMDDhhmmss.
inline constexpr long long build_stamp = 20261122000000;

inline constexpr const char* product_name = "KVA";
inline constexpr const char* component_name = "preprocessor";
inline constexpr const char* product_version = "1.0";
inline constexpr char version_suffix = ' ';
inline constexpr const char* release_name = "";

/// Returns the version banner, a block of lines.
std::string version_banner();

}  // namespace kv

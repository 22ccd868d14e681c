// Checked allocation.
//
// No caller tests for exhausted memory: an allocation that fails reports the fatal message 296,
// which ends the run. So does a `new` that fails, and with it every container of the standard
// library. Blocks come from the C library's heap, are zero-filled unless it is said, belong to the
// caller and are released with std::free.

#pragma once

#include <cstddef>

namespace kv {

/// To be called once, before anything is allocated that is to be reported: makes a `new` that fails
/// call alloc_failed, and sets memory aside for the end of a run that has none left.
void alloc_prepare();

/// Raises 296 (fatal), which ends the run. The report needs no memory; what was set aside is for
/// the way out. Where even that is not enough the process ends at once, with status 1.
[[noreturn]] void alloc_failed();

/// A new zero-filled block of `size` bytes, never null. Raises 296 (fatal) without memory.
void* checked_alloc(std::size_t size);

/// As `checked_alloc`, but what the block holds is not defined.
void* checked_alloc_raw(std::size_t size);

}  // namespace kv

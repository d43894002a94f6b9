// Interning many texts at once, for the library's readers.
#pragma once

#include <vorx/string.h>

#include <cstddef>
#include <cstdint>

namespace VORX::String {

// The most texts `_InternWideBatch` looks up under one taking of the pool's lock.
inline constexpr std::size_t kInternBatch = 64;

// Interns `count` counted wide texts: `out[i]` becomes what `CStringPool::GetStringRefn(texts[i],
// lengths[i])` gives, the null string where that gives none (no memory, a null text). The texts
// found in the pool are looked up together, up to `kInternBatch` under one taking of the lock,
// their table reads started before any is searched; texts not found are then created one by one.
// Whatever `out` held is released.
void _InternWideBatch(qefWChar const * const * texts, std::uint64_t const * lengths,
                      std::size_t count, CPPoolString * out);

} // namespace VORX::String

// Interning many texts at once, for the library's readers.
#pragma once

#include <vorx/string.h>

#include <cstddef>
#include <cstdint>

namespace VORX::Buffers {
class _CBlockArena;
} // namespace VORX::Buffers

namespace VORX::String {

// The most texts `_InternWideBatch` looks up under one taking of the pool's lock.
inline constexpr std::size_t kInternBatch = 64;

// Interns `count` counted wide texts: `out[i]` becomes what `CStringPool::GetStringRefn(texts[i],
// lengths[i])` gives, the null string where that gives none (no memory, a null text). The texts
// found in the pool are looked up together, up to `kInternBatch` under one taking of the lock,
// their table reads started before any is searched; the records of texts not found are then built
// outside the lock and join the pool together, in the order of `texts`, under a second taking of
// it. Whatever `out` held is released.
//
// With an `arena`, the records of texts the pool lacks are carved from it (by the calling thread,
// which must be the arena's), so that they lie beside the reader's other blocks; such a record
// keeps its page for as long as it stays in the pool.
void _InternWideBatch(qefWChar const * const * texts, std::uint64_t const * lengths,
                      std::size_t count, CPPoolString * out,
                      Buffers::_CBlockArena * arena = nullptr);
// As `CStringPool::GetStringRefn(text, length)`, a record the pool lacks carved from `arena` as
// `_InternWideBatch` does.
CPPoolString _InternWide(qefWChar const * text, std::uint64_t length,
                         Buffers::_CBlockArena * arena);

} // namespace VORX::String

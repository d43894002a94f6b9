// UTF-8 -> wide -> UTF-8 through the whole-buffer converters and the string classes. The input
// is used bounded (as it comes, unterminated) and terminated; the results must agree with each
// other and with the counters, and text without surrogates must come back unchanged.
#include <vorx/string.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "fuzz_check.h"

using namespace VORX::String;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size) {
  // Bounded: an exact-size copy, so reading past `size` is caught.
  std::vector<unsigned char> bounded(data, data + size);
  unsigned char const * const raw = size ? bounded.data() : nullptr;
  std::uint64_t const needed = UTF8_To_qefWChar(raw ? raw : data, size, nullptr, 0);
  Check(needed == UTF8u16strlen(raw ? raw : data, size) + 1);
  std::vector<qefWChar> exact(needed);
  std::uint64_t const got = UTF8_To_qefWChar(raw ? raw : data, size, exact.data(), needed);
  std::vector<qefWChar> roomy(size + 1);
  std::uint64_t const one = UTF8_To_qefWChar(raw ? raw : data, size, roomy.data(), size + 1);
  Check(got == one);
  if (got != 0) {
    Check(got == needed);
    Check(std::memcmp(exact.data(), roomy.data(), got * sizeof(qefWChar)) == 0);
  }

  // Terminated.
  std::vector<unsigned char> text(data, data + size);
  text.push_back(0);
  CQEFWChar const wide(text.data());
  Check(static_cast<bool>(wide));
  Check(wide.len() <= UTF8u16strlen(text.data(), qefAllOnes));

  // Back to UTF-8: the class and the converter agree; without surrogates nothing changes.
  CUTF8Char const back(*wide);
  Check(static_cast<bool>(back));
  std::uint64_t const bytes = qefWChar_To_UTF8(*wide, qefAllOnes, nullptr, 0);
  std::vector<unsigned char> utf8(bytes);
  std::uint64_t const written = qefWChar_To_UTF8(*wide, qefAllOnes, utf8.data(), bytes);
  if (written != 0) {
    Check(written == back.len() + 1);
    Check(std::memcmp(utf8.data(), *back, written) == 0);
  }
  bool plain = true;
  for (std::uint64_t i = 0; i < wide.len(); ++i) {
    plain = plain && ((*wide)[i] < 0xD800 || (*wide)[i] > 0xDFFF) && (*wide)[i] != 0;
  }
  if (plain && wide.len() == UTF8u16strlen(text.data(), qefAllOnes)) {
    // Every character decoded and none needed a pair: the bytes come back, except overlong
    // forms, which come back in their shortest form.
    CQEFWChar const again(*back);
    Check(again.len() == wide.len());
    Check(std::memcmp(*again, *wide, wide.len() * sizeof(qefWChar)) == 0);
  }
  CUTF16Char const units(*wide);
  Check(units.len() == UTF16w32strlen(*wide, qefAllOnes));
  return 0;
}

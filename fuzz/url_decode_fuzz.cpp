// URL decoding (in place and into another buffer), encoding and checking of arbitrary bytes.
#include <vorx/internetional.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "fuzz_check.h"

using namespace VORX::Internetional;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size) {
  std::vector<unsigned char> text(data, data + size);
  text.push_back(0);
  std::size_t const length = std::strlen(reinterpret_cast<char const *>(text.data()));

  // Decoding never lengthens the text; in place gives the same as into a copy.
  std::vector<unsigned char> decoded(length + 1);
  Check(URL_decodebuffer(decoded.data(), text.data()));
  Check(std::strlen(reinterpret_cast<char const *>(decoded.data())) <= length);
  std::vector<unsigned char> inPlace(text);
  Check(URL_decodebuffer(inPlace.data(), inPlace.data()));
  Check(std::strcmp(reinterpret_cast<char const *>(inPlace.data()),
                    reinterpret_cast<char const *>(decoded.data())) == 0);

  // Encoding the input gives text that checks and decodes back to the input.
  unsigned char const allowed[] = "/:";
  std::size_t const required = URL_encoderequired(text.data(), allowed);
  std::vector<unsigned char> encoded(required + 1);
  Check(URL_encodebuffer(encoded.data(), text.data(), allowed));
  Check(std::strlen(reinterpret_cast<char const *>(encoded.data())) == required);
  Check(URL_checkescape(encoded.data(), allowed));
  std::vector<unsigned char> back(required + 1);
  Check(URL_decodebuffer(back.data(), encoded.data()));
  Check(std::strcmp(reinterpret_cast<char const *>(back.data()),
                    reinterpret_cast<char const *>(text.data())) == 0);
  URL_checkescape(text.data(), nullptr);
  return 0;
}

// A host that knows only the installed package: one include, one library.
#include <vorx/vorx.h>

#include <cstdio>

int main() {
  VORX::Buffers::CMachineCRC crc(64, 0x42F0E1EBA9EA3693ull);
  char const check[] = "123456789";
  std::uint64_t const value = crc.Eval(check, 9, 0);
  std::printf("%016llx\n", static_cast<unsigned long long>(value));
  return value == 0x6C40DF5F0B497347ull ? 0 : 1;
}

// SPDX-License-Identifier: MIT
#include "util/ZEB_GPIO.h"

#include "util/internal/owners.h"

#include <cstdio>
#include <iterator>

namespace util {

namespace {

constexpr char kRegisterDump[] = "/proc/resource_dump";
constexpr unsigned int kStatusRegister = 65808;

// The bit of the register by Pin.
constexpr unsigned int kBits[] = {4, 11, 12, 22, 23, 24, 25};
static_assert(std::size(kBits) == ZEB_GPIO::TemperatureHigh + 1, "one bit a pin");

// The kernel sees the request when the file is closed. Kept: two blanks in the request.
bool request(unsigned int address) {
  const File dump(fopen(kRegisterDump, "w"));
  if (dump != nullptr) fprintf(dump.get(), "register  r %08x", address);
  return dump != nullptr;
}

}  // namespace

void ZEB_GPIO::refresh() {
  value = 0;
  if (!request(kStatusRegister)) return;
  const File dump(fopen(kRegisterDump, "r"));
  if (dump == nullptr) return;
  if (fscanf(dump.get(), "%x", &value) != 1) value = 0;  // NOLINT(cert-err34-c): 32 bits, no more
}

bool ZEB_GPIO::getPin(Pin pin) const {
  const auto index = static_cast<size_t>(pin);
  return index < std::size(kBits) && ((value >> kBits[index]) & 1) != 0;
}

}  // namespace util

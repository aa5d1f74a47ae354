// SPDX-License-Identifier: MIT
#pragma once

#include "util/export.h"

namespace util {

// The board's status lines as of the last refresh(), which asks the kernel for them through
// /proc/resource_dump. Errors are not reported: if the kernel cannot be asked, every line is low.
//
// Two objects that refresh at the same time may see each other's answer.
class UTIL_EXPORT ZEB_GPIO {
 public:
  enum Pin : int {
    DriveCount,
    SoftPowerOn,
    SoftReset,
    HardwareRevision1,
    HardwareRevision2,
    TemperatureMiddle,
    TemperatureHigh
  };
  enum HardwareRevision : int { Revision2, Revision3 };
  enum Temperature : int { Unknown, Low, Middle, High };

  ZEB_GPIO() = default;

  // Takes a new sample.
  void refresh();

  // The raw sample; 0 before the first one and if none could be taken.
  unsigned int getValue() const { return value; }

  // True if the line is high; false if `pin` is not a pin.
  bool getPin(Pin pin) const;

  // How many drives are fitted, 1 or 2.
  int getDriveCount() const { return getPin(DriveCount) ? 2 : 1; }

  HardwareRevision getHardwareRevision() const { return straps_low() ? Revision2 : Revision3; }

  // Unknown if the alarm lines contradict each other: high without middle.
  Temperature getTemperature() const { return getPin(TemperatureHigh) ? high() : below_high(); }

 private:
  bool straps_low() const { return !getPin(HardwareRevision1) && !getPin(HardwareRevision2); }
  Temperature high() const { return getPin(TemperatureMiddle) ? High : Unknown; }
  Temperature below_high() const { return getPin(TemperatureMiddle) ? Middle : Low; }

  unsigned int value = 0;
};

}  // namespace util

// Reading a driver parameter from the profile of a radio's zone.
#include "kiv/wifi.h"

#include <string.h>

#include "internal.hpp"
#include "kiv/profile.h"

int kiv_nvram_get(uint32_t radio, const char *key, char *out,
                  uint32_t out_size) {
  if (key == nullptr || out == nullptr) return -1;
  // Zeroed before the radio is judged: a refused radio leaves it empty.
  memset(out, 0, out_size);
  const kiv::wifi::DriverRadio *r = kiv::wifi::driver_radio(radio);
  if (r == nullptr) return -1;
  return KivNvram("get", r->zone, key, out, out_size);
}

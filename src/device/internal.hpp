// Shared inside the device unit: the firewall journal's text, written to
// any stream and replayed from memory.
#pragma once

#include <stddef.h>
#include <stdio.h>

#include "kiv/device.h"

namespace kiv::device {

// Replays a journal held in memory as iptabes_exe_from_file() replays a
// journal file, with a pause of pause_us microseconds (0: none) after each
// rule that the callback took: the same lines, rules and result, but no
// message and no file.  0 when every line was given to the callback, -1
// when a callback failed.
int replay_journal(const char *text, size_t len, iptbl_rule_exec_fn callback,
                   unsigned pause_us);

// Writes the header and the lines of count rules to out, as
// recoder_iptables() writes its journal, putting the constant "NULL" in
// place of the null text pointers of the caller's records.
void write_journal(FILE *out, iptbl_rule *rules, int count);

}  // namespace kiv::device

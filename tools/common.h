// Shared pieces of the hylorn tool: failures, files, PEM and DER, names, times, hex.
// The tool sees the library only through its public header.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "hylorn.h"

namespace CLI {
class App;
}

namespace hylorn_tool {

using Bytes = std::vector<unsigned char>;

// Every failure the tool reports ends in one of these; main prints it and exits with 1.
struct ToolError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// "what: step" alone, for faults found by the tool itself.
[[noreturn]] void fail(const std::string& what, const std::string& step);
// The same followed by the library's error list, for a library call that failed.
[[noreturn]] void fail_lib(const std::string& what, const std::string& step);

// ---- files ----
Bytes read_file(const std::string& path);
// Writes through a temporary file in the same folder, flushed and renamed into place, so
// a reader never sees half a file. "-" writes to standard output.
void write_file(const std::string& path, const Bytes& data, mode_t mode = 0644);
bool file_exists(const std::string& path);

// ---- PEM and DER ----
// The DER of a file holding DER, PEM or bare base64 (the first PEM block, if several).
Bytes read_der(const std::string& path);
// Every PEM block of a file (or the one DER element it holds).
std::vector<Bytes> read_der_all(const std::string& path);
std::string to_pem(const Bytes& der, const std::string& label);
// Writes DER, or PEM with the label when pem is set.
void write_encoded(const std::string& path, const Bytes& der, const std::string& label, bool pem);

// ---- names ----
constexpr int kNameSlots = 16;
using Name = std::array<std::string, kNameSlots>;
// The attribute key of each slot, in slot order (C, O, OU, ... telexNumber).
const char* slot_key(int slot);
// "/C=CN/O=Org/CN=x" into slots; "\/" escapes a slash. Unknown keys are refused.
Name parse_subject(const std::string& text);
// "C=CN, O=Org, CN=x", non-empty slots in slot order.
std::string format_name(const Name& name);
// Room for a decoded name: sixteen 256-byte buffers.
struct NameBuffers {
  char slot[kNameSlots][HYLORN_NAME_SIZE] = {};
  Name name() const;
};

// ---- times: YYYYMMDDHHMMSS, UTC ----
std::string now_text();
// Refuses anything that is not a real calendar time in that form.
void check_time(const std::string& text, const std::string& what);
std::string add_days(const std::string& text, long days);
// "2026-11-24 05:31:33 UTC" for people.
std::string readable_time(const std::string& text);

// ---- numbers ----
std::string hex(const Bytes& data, const char* separator = "");
Bytes parse_hex(const std::string& text, const std::string& what);
// Minimal big-endian INTEGER content octets of a positive number.
Bytes serial_octets(std::uint64_t value);
std::string serial_decimal(const Bytes& octets);

// ---- test hook ----
// Ends the process at once (as a crash or a kill would) when HYLORN_TEST_CRASH_AT names
// this point. Without the variable it does nothing; it never changes what is written.
void crash_point(const char* point);

// ---- command-line helpers ----
// Adds --outform pem|der (default pem) bound to form.
void add_outform(CLI::App* cmd, std::string& form);
inline bool is_pem(const std::string& form) {
  return form != "der";
}

// ---- subcommands, one family per file ----
void add_key_commands(CLI::App& app);
void add_req_command(CLI::App& app);
void add_ca_commands(CLI::App& app);
void add_show_command(CLI::App& app);
void add_verify_commands(CLI::App& app);

}  // namespace hylorn_tool

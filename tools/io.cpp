// Files, PEM and DER, names, times and numbers for the subcommands.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <sstream>

#include "common.h"

namespace hylorn_tool {

namespace {

std::string library_errors() {
  char text[HYLORN_ERR_TEXT_SIZE] = "";
  Crypt_Get_Err(text);
  std::string out;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) out += "\n  " + line;
  return out.empty() ? "\n  (the library's error list is empty)" : out;
}

}  // namespace

void fail(const std::string& what, const std::string& step) {
  throw ToolError(what + ": " + step);
}

void fail_lib(const std::string& what, const std::string& step) {
  throw ToolError(what + ": " + step + library_errors());
}

Bytes read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) fail(path, std::string("cannot open for reading (") + std::strerror(errno) + ")");
  Bytes data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) fail(path, "read error");
  return data;
}

bool file_exists(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

namespace {

void write_all(int fd, const Bytes& data, const std::string& path) {
  size_t done = 0;
  while (done < data.size()) {
    ssize_t n = ::write(fd, data.data() + done, data.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) fail(path, std::string("write error (") + std::strerror(errno) + ")");
    done += static_cast<size_t>(n);
  }
}

}  // namespace

void write_file(const std::string& path, const Bytes& data, mode_t mode) {
  if (path == "-") {
    write_all(STDOUT_FILENO, data, "standard output");
    return;
  }
  std::string temp = path + ".tmp-" + std::to_string(::getpid());
  int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL, mode);
  if (fd < 0) fail(path, std::string("cannot create (") + std::strerror(errno) + ")");
  try {
    write_all(fd, data, path);
    if (::fsync(fd) != 0) fail(path, "cannot flush to disk");
  } catch (...) {
    ::close(fd);
    ::unlink(temp.c_str());
    throw;
  }
  ::close(fd);
  if (::rename(temp.c_str(), path.c_str()) != 0) {
    ::unlink(temp.c_str());
    fail(path, std::string("cannot rename into place (") + std::strerror(errno) + ")");
  }
}

// ---- PEM and DER ----

namespace {

Bytes pem_block_to_der(const std::string& block, const std::string& path) {
  if (block.size() > 0x7fffffff) fail(path, "PEM text too long");
  Bytes der(block.size() * 3 / 4 + 4);
  unsigned int len = 0;
  if (PEM2DER_data_format(block.data(), static_cast<int>(block.size()), der.data(), &len) != 0)
    fail_lib(path, "PEM to DER conversion failed (PEM2DER_data_format)");
  der.resize(len);
  return der;
}

bool looks_like_der(const Bytes& data) {
  return !data.empty() && data[0] == 0x30;
}

}  // namespace

std::vector<Bytes> read_der_all(const std::string& path) {
  Bytes data = read_file(path);
  if (data.empty()) fail(path, "file is empty");
  if (looks_like_der(data)) return {data};
  std::string text(data.begin(), data.end());
  std::vector<Bytes> blocks;
  size_t pos = 0;
  while ((pos = text.find("-----BEGIN", pos)) != std::string::npos) {
    size_t end = text.find("-----END", pos);
    if (end == std::string::npos) fail(path, "PEM block without an END line");
    size_t line_end = text.find('\n', end);
    line_end = line_end == std::string::npos ? text.size() : line_end + 1;
    blocks.push_back(pem_block_to_der(text.substr(pos, line_end - pos), path));
    pos = line_end;
  }
  if (!blocks.empty()) return blocks;
  // Bare base64, as an SPKAC line "SPKAC=..." carries it.
  if (text.rfind("SPKAC=", 0) == 0) text.erase(0, 6);
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.pop_back();
  return {pem_block_to_der(text, path)};
}

Bytes read_der(const std::string& path) {
  return read_der_all(path).front();
}

std::string to_pem(const Bytes& der, const std::string& label) {
  std::string header = "-----BEGIN " + label + "-----";
  std::string footer = "-----END " + label + "-----";
  size_t room =
      header.size() + footer.size() + 4 * ((der.size() + 2) / 3) + 2 * ((der.size() + 47) / 48) + 5;
  std::string out(room, '\0');
  unsigned int len = 0;
  if (DER2PEM_data_format(der.data(), static_cast<unsigned int>(der.size()), out.data(), &len,
                          header.c_str(), footer.c_str()) != 0)
    fail_lib(label, "DER to PEM conversion failed (DER2PEM_data_format)");
  out.resize(len);
  return out;
}

void write_encoded(const std::string& path, const Bytes& der, const std::string& label, bool pem) {
  if (!pem) return write_file(path, der);
  std::string text = to_pem(der, label);
  write_file(path, Bytes(text.begin(), text.end()));
}

// ---- names ----

namespace {

constexpr const char* kSlotKeys[kNameSlots] = {"C",
                                               "O",
                                               "OU",
                                               "ST",
                                               "CN",
                                               "L",
                                               "title",
                                               "SN",
                                               "GN",
                                               "initials",
                                               "emailAddress",
                                               "postalAddress",
                                               "postalCode",
                                               "postOfficeBox",
                                               "telephoneNumber",
                                               "telexNumber"};

int slot_of(const std::string& key) {
  for (int i = 0; i < kNameSlots; ++i)
    if (key == kSlotKeys[i]) return i;
  // The long forms people also write.
  static const std::pair<const char*, int> kAliases[] = {{"countryName", 0},
                                                         {"organizationName", 1},
                                                         {"organizationalUnitName", 2},
                                                         {"stateOrProvinceName", 3},
                                                         {"commonName", 4},
                                                         {"localityName", 5},
                                                         {"surname", 7},
                                                         {"givenName", 8},
                                                         {"email", 10}};
  for (const auto& [alias, slot] : kAliases)
    if (key == alias) return slot;
  return -1;
}

}  // namespace

const char* slot_key(int slot) {
  return kSlotKeys[slot];
}

Name parse_subject(const std::string& text) {
  if (text.empty() || text[0] != '/') fail("subject \"" + text + "\"", "must start with '/'");
  // Split on unescaped slashes.
  std::vector<std::string> parts;
  std::string cur;
  for (size_t i = 1; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 1 < text.size()) {
      cur += text[++i];
    } else if (text[i] == '/') {
      parts.push_back(cur);
      cur.clear();
    } else {
      cur += text[i];
    }
  }
  parts.push_back(cur);
  Name name;
  for (const std::string& part : parts) {
    if (part.empty()) continue;
    size_t eq = part.find('=');
    if (eq == std::string::npos) fail("subject part \"" + part + "\"", "expected KEY=value");
    int slot = slot_of(part.substr(0, eq));
    if (slot < 0) fail("subject part \"" + part + "\"", "unknown attribute " + part.substr(0, eq));
    std::string value = part.substr(eq + 1);
    if (value.empty()) fail("subject part \"" + part + "\"", "empty value");
    if (value.size() >= HYLORN_NAME_SIZE) fail("subject part \"" + part + "\"", "value too long");
    if (!name[slot].empty()) fail("subject part \"" + part + "\"", "attribute given twice");
    name[slot] = value;
  }
  return name;
}

std::string format_name(const Name& name) {
  std::string out;
  for (int i = 0; i < kNameSlots; ++i) {
    if (name[i].empty()) continue;
    if (!out.empty()) out += ", ";
    out += std::string(kSlotKeys[i]) + "=" + name[i];
  }
  return out.empty() ? "(empty)" : out;
}

Name NameBuffers::name() const {
  Name n;
  for (int i = 0; i < kNameSlots; ++i)
    n[i] = std::string(slot[i], strnlen(slot[i], HYLORN_NAME_SIZE));
  return n;
}

// ---- times ----

namespace {

bool to_tm(const std::string& text, std::tm& tm) {
  if (text.size() != 14) return false;
  for (char c : text)
    if (c < '0' || c > '9') return false;
  auto num = [&](size_t at, size_t len) { return std::stoi(text.substr(at, len)); };
  tm = {};
  tm.tm_year = num(0, 4) - 1900;
  tm.tm_mon = num(4, 2) - 1;
  tm.tm_mday = num(6, 2);
  tm.tm_hour = num(8, 2);
  tm.tm_min = num(10, 2);
  tm.tm_sec = num(12, 2);
  std::tm copy = tm;
  std::time_t t = timegm(&copy);
  // timegm normalises out-of-range fields; a real time comes back unchanged.
  return t != -1 && copy.tm_year == tm.tm_year && copy.tm_mon == tm.tm_mon &&
         copy.tm_mday == tm.tm_mday && copy.tm_hour == tm.tm_hour && copy.tm_min == tm.tm_min &&
         copy.tm_sec == tm.tm_sec;
}

std::string from_time(std::time_t t) {
  std::tm tm;
  gmtime_r(&t, &tm);
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y%m%d%H%M%S", &tm);
  return buf;
}

}  // namespace

std::string now_text() {
  return from_time(std::time(nullptr));
}

void check_time(const std::string& text, const std::string& what) {
  std::tm tm;
  if (!to_tm(text, tm)) fail(what + " \"" + text + "\"", "not a time of the form YYYYMMDDHHMMSS");
  if (tm.tm_year + 1900 < 1951 || tm.tm_year + 1900 > 9999)
    fail(what + " \"" + text + "\"", "year outside 1951 to 9999");
}

std::string add_days(const std::string& text, long days) {
  std::tm tm;
  if (!to_tm(text, tm)) fail("time \"" + text + "\"", "not a time of the form YYYYMMDDHHMMSS");
  return from_time(timegm(&tm) + days * 86400L);
}

std::string readable_time(const std::string& text) {
  if (text.size() != 14) return text.empty() ? "(none)" : text;
  return text.substr(0, 4) + "-" + text.substr(4, 2) + "-" + text.substr(6, 2) + " " +
         text.substr(8, 2) + ":" + text.substr(10, 2) + ":" + text.substr(12, 2) + " UTC";
}

// ---- numbers ----

std::string hex(const Bytes& data, const char* separator) {
  static const char digits[] = "0123456789ABCDEF";
  std::string out;
  for (size_t i = 0; i < data.size(); ++i) {
    if (i) out += separator;
    out += digits[data[i] >> 4];
    out += digits[data[i] & 15];
  }
  return out;
}

Bytes parse_hex(const std::string& text, const std::string& what) {
  std::string digits;
  for (char c : text)
    if (c != ':' && c != ' ') digits += c;
  if (digits.size() % 2) fail(what + " \"" + text + "\"", "odd number of hex digits");
  Bytes out;
  for (size_t i = 0; i < digits.size(); i += 2) {
    auto val = [&](char c) {
      if (c >= '0' && c <= '9') return c - '0';
      if (c >= 'a' && c <= 'f') return c - 'a' + 10;
      if (c >= 'A' && c <= 'F') return c - 'A' + 10;
      fail(what + " \"" + text + "\"", "not hexadecimal");
    };
    out.push_back(static_cast<unsigned char>(val(digits[i]) * 16 + val(digits[i + 1])));
  }
  return out;
}

Bytes serial_octets(std::uint64_t value) {
  Bytes out;
  do {
    out.insert(out.begin(), static_cast<unsigned char>(value & 0xff));
    value >>= 8;
  } while (value);
  if (out[0] & 0x80) out.insert(out.begin(), 0);  // stays positive as an INTEGER
  return out;
}

std::string serial_decimal(const Bytes& octets) {
  if (octets.size() > 128) return "0x" + hex(octets);
  char text[320] = "";
  if (Crypt_Int2Char(octets.data(), static_cast<int>(octets.size()), text) != 0)
    return "0x" + hex(octets);
  return text;
}

void crash_point(const char* point) {
  const char* at = std::getenv("HYLORN_TEST_CRASH_AT");
  if (at && std::strcmp(at, point) == 0) ::_exit(86);
}

}  // namespace hylorn_tool

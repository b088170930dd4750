// Minimal DER reading: definite lengths only, every length checked against its input.
#include "der.h"

namespace hylorn_tool {

bool read_element(const unsigned char* p, size_t n, Element& out) {
  if (n < 2 || (p[0] & 0x1f) == 0x1f) return false;
  size_t len = p[1];
  size_t header = 2;
  if (len & 0x80) {
    size_t count = len & 0x7f;
    if (count == 0 || count > 4 || n < 2 + count) return false;
    len = 0;
    for (size_t i = 0; i < count; ++i) len = (len << 8) | p[2 + i];
    header += count;
  }
  if (len > n - header) return false;
  out = Element{p[0], p, header + len, p + header, len};
  return true;
}

bool read_children(const Element& parent, std::vector<Element>& out) {
  out.clear();
  if (!(parent.tag & 0x20)) return false;
  const unsigned char* p = parent.content;
  size_t left = parent.length;
  while (left) {
    Element e;
    if (!read_element(p, left, e)) return false;
    out.push_back(e);
    p += e.size;
    left -= e.size;
  }
  return true;
}

bool split_signed(const Bytes& der, SignedParts& out) {
  Element outer;
  std::vector<Element> parts, alg;
  if (!read_element(der.data(), der.size(), outer) || outer.tag != 0x30 ||
      outer.size != der.size() || !read_children(outer, parts) || parts.size() != 3)
    return false;
  if (parts[1].tag != 0x30 || !read_children(parts[1], alg) || alg.empty() || alg[0].tag != 0x06)
    return false;
  if (parts[2].tag != 0x03 || parts[2].length < 1 || parts[2].content[0] != 0) return false;
  out.tbs.assign(parts[0].start, parts[0].start + parts[0].size);
  out.alg_oid = oid_text(alg[0].content, alg[0].length);
  static const std::pair<const char*, int> kAlgs[] = {{"1.2.840.113549.1.1.2", 1},
                                                      {"1.2.840.113549.1.1.4", 2},
                                                      {"1.2.840.113549.1.1.5", 3},
                                                      {"1.3.14.3.2.29", 3}};
  out.alg = 0;
  for (const auto& [oid, number] : kAlgs)
    if (out.alg_oid == oid) out.alg = number;
  out.signature.assign(parts[2].content + 1, parts[2].content + parts[2].length);
  return true;
}

std::string oid_text(const unsigned char* p, size_t n) {
  std::string out;
  unsigned long long value = 0;
  bool first = true;
  for (size_t i = 0; i < n; ++i) {
    if (value > (1ULL << 56)) return "(malformed)";
    value = (value << 7) | (p[i] & 0x7f);
    if (p[i] & 0x80) continue;
    if (first) {
      unsigned long long top = value < 40 ? 0 : value < 80 ? 1 : 2;
      out = std::to_string(top) + "." + std::to_string(value - 40 * top);
      first = false;
    } else {
      out += "." + std::to_string(value);
    }
    value = 0;
  }
  return out.empty() ? "(empty)" : out;
}

Bytes oid_octets(const std::string& dotted) {
  std::vector<unsigned long long> arcs;
  size_t pos = 0;
  while (pos <= dotted.size()) {
    size_t dot = dotted.find('.', pos);
    std::string arc = dotted.substr(pos, dot == std::string::npos ? std::string::npos : dot - pos);
    if (arc.empty() || arc.size() > 18 || arc.find_first_not_of("0123456789") != std::string::npos)
      fail("object identifier \"" + dotted + "\"", "not a dotted number");
    arcs.push_back(std::stoull(arc));
    if (dot == std::string::npos) break;
    pos = dot + 1;
  }
  if (arcs.size() < 2 || arcs[0] > 2 || (arcs[0] < 2 && arcs[1] >= 40))
    fail("object identifier \"" + dotted + "\"", "first arcs out of range");
  Bytes out;
  auto put = [&](unsigned long long v) {
    Bytes groups;
    do {
      groups.insert(groups.begin(),
                    static_cast<unsigned char>((v & 0x7f) | (groups.empty() ? 0 : 0x80)));
      v >>= 7;
    } while (v);
    out.insert(out.end(), groups.begin(), groups.end());
  };
  put(arcs[0] * 40 + arcs[1]);
  for (size_t i = 2; i < arcs.size(); ++i) put(arcs[i]);
  return out;
}

const char* sig_alg_name(unsigned alg) {
  switch (alg) {
    case 1:
      return "md2WithRSAEncryption";
    case 2:
      return "md5WithRSAEncryption";
    case 3:
      return "sha1WithRSAEncryption";
    default:
      return "unknown";
  }
}

int digest_number(const std::string& name) {
  if (name == "md2") return 1;
  if (name == "md5") return 2;
  if (name == "sha1") return 3;
  fail("digest \"" + name + "\"", "unknown (use md2, md5 or sha1)");
}

}  // namespace hylorn_tool

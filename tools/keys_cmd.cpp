// Keys and data: genkey, hash, enc, dec, pem, der.
#include <string.h>
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "cert.h"
#include "common.h"

namespace hylorn_tool {

void add_outform(CLI::App* cmd, std::string& form) {
  cmd->add_option("--outform", form, "Output encoding: pem (default) or der")
      ->check(CLI::IsMember({"pem", "der"}));
}

namespace {

struct KeyOptions {
  std::string out, pubout = "-", form = "pem";
  bool force = false;
};

// The library writes the private key file itself; the umask around the call makes it
// 0600 from its first byte, so no other user ever has a window to read it.
void run_genkey(const KeyOptions& o) {
  if (file_exists(o.out)) {
    if (!o.force) fail(o.out, "key file exists already (use --force to replace it)");
    if (::unlink(o.out.c_str()) != 0) fail(o.out, "cannot remove the old key file");
  }
  unsigned char pub[HYLORN_PUBKEY_DER_SIZE], pri[HYLORN_PRIKEY_DER_SIZE];
  unsigned pub_len = 0, pri_len = 0;
  mode_t old = ::umask(077);
  unsigned r = Crypt_GenRSAKeyPair(o.out.c_str(), 0, pub, &pub_len, pri, &pri_len);
  ::umask(old);
  explicit_bzero(pri, sizeof pri);
  if (r != 0) fail_lib(o.out, "key generation failed (Crypt_GenRSAKeyPair)");
  write_encoded(o.pubout, Bytes(pub, pub + pub_len), "RSA PUBLIC KEY", is_pem(o.form));
  std::cerr << "wrote a 1024-bit RSA private key to " << o.out << " (mode 0600)\n";
}

struct HashOptions {
  std::string alg = "sha1";
  std::vector<std::string> files;
};

void run_hash(const HashOptions& o) {
  int alg = 0;
  if (o.alg == "md2")
    alg = 1;
  else if (o.alg == "md5")
    alg = 2;
  else
    alg = 3;
  for (const std::string& path : o.files) {
    Bytes data = read_file(path);
    if (data.size() > 0xffffffffu) fail(path, "file too large");
    unsigned char digest[HYLORN_DIGEST_SIZE];
    unsigned len = 0;
    if (Crypt_Gen_Hash(alg, data.data(), static_cast<unsigned>(data.size()), digest, &len) != 0)
      fail_lib(path, "digest failed (Crypt_Gen_Hash)");
    std::string upper = o.alg;
    for (char& c : upper) c = static_cast<char>(toupper(c));
    std::string h = hex(Bytes(digest, digest + len));
    for (char& c : h) c = static_cast<char>(tolower(c));
    std::cout << upper << "(" << path << ")= " << h << "\n";
  }
}

struct CipherOptions {
  std::string in, out, cert, key_file, key_hex;
};

Bytes session_key(const std::string& text) {
  Bytes key = parse_hex(text, "key");
  if (key.size() != HYLORN_SESSION_KEY_SIZE) fail("key", "must be 16 bytes (32 hex digits)");
  return key;
}

Bytes read_input(const std::string& path) {
  Bytes data = read_file(path);
  if (data.size() > 0x7fffff00u) fail(path, "file too large");
  return data;
}

void run_enc(const CipherOptions& o) {
  Bytes in = read_input(o.in);
  unsigned len = 0;
  Bytes out;
  if (!o.cert.empty()) {
    Bytes cert = read_der(o.cert);
    unsigned char pub[HYLORN_PUBKEY_SIZE];
    unsigned pub_len = 0;
    if (Crypt_Get_PubKey_FromCert(cert.data(), static_cast<unsigned>(cert.size()), pub, &pub_len) !=
        0)
      fail_lib(o.cert,
               "cannot take the public key from the certificate (Crypt_Get_PubKey_FromCert)");
    out.resize(in.size() + HYLORN_ENVELOPE_KEY_SIZE + 8);
    if (Crypt_Enc_Data(in.data(), static_cast<unsigned>(in.size()), out.data(), &len, pub,
                       pub_len) != 0)
      fail_lib(o.in, "envelope encryption failed (Crypt_Enc_Data)");
  } else {
    Bytes key = session_key(o.key_hex);
    out.resize(in.size() + 8);
    unsigned r =
        Crypt_Enc_Data_S(in.data(), static_cast<unsigned>(in.size()), out.data(), &len, key.data());
    explicit_bzero(key.data(), key.size());
    if (r != 0) fail_lib(o.in, "encryption failed (Crypt_Enc_Data_S)");
  }
  out.resize(len);
  write_file(o.out, out);
}

void run_dec(const CipherOptions& o) {
  Bytes in = read_input(o.in);
  unsigned len = 0;
  Bytes out(in.size() + 1);
  if (!o.key_file.empty()) {
    if (in.size() <= HYLORN_ENVELOPE_KEY_SIZE) fail(o.in, "too short for an envelope");
    if (Crypt_Dec_Data(in.data(), static_cast<unsigned>(in.size()), out.data(), &len,
                       o.key_file.c_str()) != 0)
      fail_lib(o.in, "opening the envelope with " + o.key_file + " failed (Crypt_Dec_Data)");
  } else {
    Bytes key = session_key(o.key_hex);
    unsigned r =
        Crypt_Dec_Data_S(in.data(), static_cast<unsigned>(in.size()), out.data(), &len, key.data());
    explicit_bzero(key.data(), key.size());
    if (r != 0) fail_lib(o.in, "decryption failed (Crypt_Dec_Data_S)");
  }
  out.resize(len);
  write_file(o.out, out, 0600);
  explicit_bzero(out.data(), out.size());
}

struct ConvertOptions {
  std::string in, out = "-", label = "CERTIFICATE";
};

void add_cipher_options(CLI::App* cmd, CipherOptions& o) {
  cmd->add_option("-i,--in", o.in, "Input file")->required();
  cmd->add_option("-o,--out", o.out, "Output file")->required();
  cmd->add_option("-k,--key", o.key_hex, "16-byte symmetric key as 32 hex digits");
}

}  // namespace

void add_key_commands(CLI::App& app) {
  auto key = std::make_shared<KeyOptions>();
  auto* genkey = app.add_subcommand(
      "genkey",
      "Make a 1024-bit RSA key pair: the private key into a key file (mode 0600), "
      "the public key out");
  genkey
      ->add_option("-o,--out", key->out, "Private key file to create (the library's DER key file)")
      ->required();
  genkey->add_option("-p,--pubout", key->pubout, "Public key output (default: standard output)");
  genkey->add_flag("-f,--force", key->force, "Replace an existing key file");
  add_outform(genkey, key->form);
  genkey->callback([key] { run_genkey(*key); });

  auto hash = std::make_shared<HashOptions>();
  auto* h = app.add_subcommand("hash", "Print the digest of files");
  h->add_option("-a,--alg", hash->alg, "Digest: md2, md5 or sha1 (default)")
      ->check(CLI::IsMember({"md2", "md5", "sha1"}));
  h->add_option("files", hash->files, "Files to digest")->required();
  h->callback([hash] { run_hash(*hash); });

  auto enc = std::make_shared<CipherOptions>();
  auto* e = app.add_subcommand(
      "enc", "Encrypt: an envelope to a certificate's key (--cert) or the block cipher (--key)");
  add_cipher_options(e, *enc);
  auto* enc_cert = e->add_option("-c,--cert", enc->cert, "Recipient certificate (envelope)");
  e->get_option("--key")->excludes(enc_cert);
  e->callback([enc] {
    if (enc->cert.empty() && enc->key_hex.empty()) fail("enc", "give --cert or --key");
    run_enc(*enc);
  });

  auto dec = std::make_shared<CipherOptions>();
  auto* d = app.add_subcommand(
      "dec", "Decrypt: an envelope with a key file (--keyfile) or the block cipher (--key)");
  add_cipher_options(d, *dec);
  auto* dec_file = d->add_option("--keyfile", dec->key_file, "Private key file (envelope)");
  d->get_option("--key")->excludes(dec_file);
  d->callback([dec] {
    if (dec->key_file.empty() && dec->key_hex.empty()) fail("dec", "give --keyfile or --key");
    run_dec(*dec);
  });

  auto pem = std::make_shared<ConvertOptions>();
  auto* p = app.add_subcommand("pem", "Convert DER (or PEM) to PEM");
  p->add_option("-i,--in", pem->in, "Input file")->required();
  p->add_option("-o,--out", pem->out, "Output file (default: standard output)");
  p->add_option("-l,--label", pem->label, "PEM label (default CERTIFICATE)");
  p->callback([pem] { write_encoded(pem->out, read_der(pem->in), pem->label, true); });

  auto der = std::make_shared<ConvertOptions>();
  auto* dd = app.add_subcommand("der", "Convert PEM (or DER) to DER");
  dd->add_option("-i,--in", der->in, "Input file")->required();
  dd->add_option("-o,--out", der->out, "Output file (default: standard output)");
  dd->callback([der] { write_file(der->out, read_der(der->in)); });
}

}  // namespace hylorn_tool

#!/usr/bin/env bash
# Writes the seed corpora of the fuzz targets into fuzz/corpus/<target>/, each file named
# by the SHA-1 of its content. Half the material comes from the library through the
# hylorn tool (keys, requests, a CA issuing, revoking and writing CRLs, envelopes and the
# block cipher), half from OpenSSL (keys, requests, certificates with many extensions, a
# CA's CRLs, SPKAC, signatures). Certificates that the verifying targets check are signed
# with the fixed key of fuzz/fixed_key.h, which this script reads back out of that header.
# Usage: fuzz/make_seeds.sh [HYLORN_TOOL]   (default: build/tools/hylorn)
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
hylorn=$(realpath "${1:-$top/build/tools/hylorn}")
corpus=$top/fuzz/corpus
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
rm -rf "$corpus"

# seed TARGET FILE...: each file into the target's corpus, named by its SHA-1.
seed() {
  local target=$1
  shift
  mkdir -p "$corpus/$target"
  for f in "$@"; do
    cp "$f" "$corpus/$target/$(sha1sum <"$f" | cut -c1-40)"
  done
}
# hex HEX: the bytes of a hex text.
hex() { printf '%s' "$1" | xxd -r -p; }
# seed_behind TARGET HEX FILE...: each file behind the leading bytes HEX (a target's mode
# selector and the like).
seed_behind() {
  local target=$1 lead=$2
  shift 2
  for f in "$@"; do
    { hex "$lead"; cat "$f"; } >prefixed
    seed "$target" prefixed
  done
}
der_of_pem() { openssl "$1" -in "$2" -outform DER -out "$3"; }

# ---- the fixed key, and OpenSSL's configuration for PrintableString names -------------
sed -n '/kFixedPrivateKey\[\] = {/,/};/p' "$top/fuzz/fixed_key.h" | grep -o '0x[0-9a-f]*' |
  sed 's/0x//' | tr -d '\n' | xxd -r -p >fixed.der
openssl rsa -inform DER -in fixed.der -traditional -out fixed.pem 2>/dev/null
sed -n '/kFixedRoot\[\] = {/,/};/p' "$top/fuzz/fixed_key.h" | grep -o '0x[0-9a-f]*' |
  sed 's/0x//' | tr -d '\n' | xxd -r -p >root.der
openssl x509 -inform DER -in root.der -out root.pem
cat >openssl.cnf <<'EOF'
[req]
distinguished_name = dn
string_mask = pkix
prompt = no
[dn]
[leaf]
basicConstraints = CA:FALSE
keyUsage = critical, digitalSignature, keyEncipherment
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid, issuer
nsCertType = client, email
[ca]
basicConstraints = critical, CA:TRUE, pathlen:2
keyUsage = critical, keyCertSign, cRLSign
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid:always, issuer:always
certificatePolicies = 1.2.3.4, @policy
[policy]
policyIdentifier = 1.3.6.1.4.1.55555.7
CPS.1 = "https://ca.example/cps"
[other]
subjectAltName = DNS:www.example.com, email:a@example.com
extendedKeyUsage = serverAuth, clientAuth
crlDistributionPoints = URI:http://ca.example/root.crl
[ca_section]
default_ca = fixed
[fixed]
dir = ./ossl-ca
database = $dir/index.txt
new_certs_dir = $dir
serial = $dir/serial
crlnumber = $dir/crlnumber
certificate = ./root.pem
private_key = ./fixed.pem
default_md = sha1
default_crl_days = 30
policy = anything
string_mask = pkix
[anything]
commonName = supplied
[crl_ext]
authorityKeyIdentifier = keyid:always
EOF
export OPENSSL_CONF=$work/openssl.cnf

# ---- keys ------------------------------------------------------------------------------
"$hylorn" genkey -o h1.key -p h1.pub --outform der >/dev/null
"$hylorn" genkey -o h2.key -p h2.pub --outform der >/dev/null
for bits in 512 1024 2048; do
  openssl genrsa -traditional -out o$bits.pem $bits 2>/dev/null
  openssl rsa -in o$bits.pem -traditional -outform DER -out o$bits.key 2>/dev/null
  openssl rsa -in o$bits.pem -RSAPublicKey_out -outform DER -out o$bits.pub 2>/dev/null
done
openssl rsa -in o1024.pem -outform DER -out o1024.p8 2>/dev/null       # PKCS #8, refused
openssl rsa -in o1024.pem -pubout -outform DER -out o1024.spki 2>/dev/null
seed fuzz_key_decoders h1.key h1.pub h2.key fixed.der o512.key o512.pub o1024.key o1024.pub \
  o2048.key o2048.pub o1024.p8 o1024.spki

# ---- certificates, requests and CRLs by the library (the hylorn tool) ----------------
"$hylorn" ca init own --subj "/C=CN/O=Hylorn Seeds/CN=Own Root" --days 3650 --md md5 >/dev/null
"$hylorn" ca init fixed --key fixed.der --cert root.pem >/dev/null
"$hylorn" req -k h1.key -o h1.req --outform der \
  -s "/C=CN/ST=Beijing/L=Haidian/O=Seeds/OU=Web/CN=www.example.com/emailAddress=w@example.com/title=Dr/SN=Li/GN=Wei/initials=LW/postalCode=100080/telephoneNumber=+86 10 1234/postalAddress=Road 1/postOfficeBox=PO 7/telexNumber=12345"
"$hylorn" req -k h2.key -o h2.req --outform der -s "/CN=short"
"$hylorn" ca issue fixed -i h1.req -o hf1.der --outform der --policy 1.3.6.1.4.1.55555.1=https://ca.example/cps \
  --policy 1.2.3 --key-usage digitalSignature,nonRepudiation,decipherOnly >/dev/null
"$hylorn" ca issue fixed -i h2.req -o hf2.der --outform der --ca --pathlen 3 --md md2 >/dev/null
"$hylorn" ca issue fixed -i h2.req -o hf3.der --outform der --md md5 --not-before 20491231235959 \
  --not-after 20510101000000 >/dev/null
"$hylorn" ca issue own -i h1.req -o ho1.der --outform der >/dev/null
"$hylorn" ca revoke fixed 1 --reason keyCompromise --date 20260101000000
"$hylorn" ca revoke fixed 2 --reason certificateHold
"$hylorn" ca revoke own 2
"$hylorn" ca crl fixed -o hf.crl --outform der >/dev/null
"$hylorn" ca crl own -o ho.crl --outform der --md md2 >/dev/null
"$hylorn" ca crl own -o ho2.crl --outform der >/dev/null
der_of_pem x509 own/ca.pem hown.der
hylorn_signed_by_fixed=(hf1.der hf2.der hf3.der)
hylorn_certs=(hf1.der hf2.der hf3.der ho1.der hown.der)

# ---- certificates, requests, CRLs and SPKAC by OpenSSL -------------------------------
openssl req -new -key o1024.pem -subj "/C=CN/O=Seeds/OU=OpenSSL/CN=leaf.example" -out o.req
openssl req -new -key o512.pem -subj "/CN=tiny" -md5 -out o512.req
openssl x509 -req -in o.req -CA root.pem -CAkey fixed.pem -set_serial 0x0102030405 -days 400 \
  -sha1 -extfile openssl.cnf -extensions leaf -outform DER -out of1.der 2>/dev/null
openssl x509 -req -in o.req -CA root.pem -CAkey fixed.pem -set_serial 7 -days 400 -md5 \
  -extfile openssl.cnf -extensions ca -outform DER -out of2.der 2>/dev/null
openssl x509 -req -in o.req -CA root.pem -CAkey fixed.pem -set_serial 8 -days 400 -sha1 \
  -extfile openssl.cnf -extensions other -outform DER -out of3.der 2>/dev/null
openssl x509 -req -in o.req -CA root.pem -CAkey fixed.pem -set_serial 9 -days 40000 -sha1 \
  -outform DER -out of4.der 2>/dev/null
openssl x509 -req -in o512.req -key o512.pem -set_serial 10 -days 30 -md5 \
  -outform DER -out o512self.der 2>/dev/null
openssl req -new -x509 -key o2048.pem -subj "/C=US/O=Big/CN=big" -sha1 -days 30 \
  -outform DER -out o2048self.der
der_of_pem req o.req o.req.der
der_of_pem req o512.req o512.req.der
openssl spkac -key o1024.pem -challenge "hello seeds" | sed 's/^SPKAC=//' | base64 -d >o.spkac
openssl spkac -key fixed.pem -challenge "" -digest sha1 | sed 's/^SPKAC=//' | base64 -d >f.spkac
mkdir -p ossl-ca
: >ossl-ca/index.txt
echo 01 >ossl-ca/crlnumber
openssl ca -name fixed -revoke <(openssl x509 -inform DER -in of1.der) -crl_reason keyCompromise \
  -batch 2>/dev/null
openssl ca -name fixed -revoke <(openssl x509 -inform DER -in of2.der) -crl_reason superseded \
  -batch 2>/dev/null
openssl ca -name fixed -gencrl -crlexts crl_ext -out of.crl.pem -batch 2>/dev/null
openssl ca -name fixed -gencrl -out of2.crl.pem -md md5 -batch 2>/dev/null
der_of_pem crl of.crl.pem of.crl
der_of_pem crl of2.crl.pem of2.crl
openssl_signed_by_fixed=(of1.der of2.der of3.der of4.der)
openssl_certs=(of1.der of2.der of3.der of4.der o512self.der o2048self.der root.der)

all_certs=("${hylorn_certs[@]}" "${openssl_certs[@]}")
seed fuzz_cert "${all_certs[@]}"
seed fuzz_cert_round_trip "${all_certs[@]}"
seed fuzz_crl hf.crl ho.crl ho2.crl of.crl of2.crl
seed fuzz_request_decoders h1.req h2.req o.req.der o512.req.der o.spkac f.spkac

# Even: a certificate against the fixed root; odd: an issuer of the fixed root.
seed_behind fuzz_verify_by_root 00 "${hylorn_signed_by_fixed[@]}" "${openssl_signed_by_fixed[@]}" \
  root.der ho1.der
seed_behind fuzz_verify_by_root 01 root.der hown.der of2.der o2048self.der

# ---- PEM and base64 --------------------------------------------------------------------
"$hylorn" pem -i hf1.der -o hf1.pem >/dev/null
"$hylorn" pem -i h1.req -o h1.req.pem -l "CERTIFICATE REQUEST" >/dev/null
"$hylorn" pem -i hf.crl -o hf.crl.pem -l "X509 CRL" >/dev/null
"$hylorn" pem -i h1.pub -o h1.pub.pem -l "RSA PUBLIC KEY" >/dev/null
seed fuzz_pem2der hf1.pem h1.req.pem hf.crl.pem h1.pub.pem root.pem o.req o1024.pem \
  of.crl.pem own/ca.pem
grep -v -- '-----' root.pem >root.b64
base64 -w 0 <h1.pub >h1.b64
printf 'QQ==' >short.b64
printf 'QUJD\r\nREVG\r\n' >crlf.b64
seed fuzz_base64 root.b64 h1.b64 short.b64 crlf.b64
seed fuzz_pem2der root.b64 h1.b64

# ---- DER elements: every element of a few certificates, and their extension lists ----
# parts.py FILE OUT PREFIX: writes each element of the DER in FILE, at every depth, to
# OUT/PREFIX<n>; extension lists ([3] of a certificate, [0] of a CRL's TBS) also as
# OUT/ext-PREFIX<n>.
cat >parts.py <<'EOF'
import sys
data = open(sys.argv[1], 'rb').read()
out, prefix = sys.argv[2], sys.argv[3]
count = 0

def header(b, i):
    tag, n = b[i], b[i + 1]
    if n < 0x80:
        return tag, i + 2, n
    k = n & 0x7F
    return tag, i + 2 + k, int.from_bytes(b[i + 2:i + 2 + k], 'big')

def walk(b, start, end, depth):
    global count
    i = start
    while i < end:
        tag, body, n = header(b, i)
        element = b[i:body + n]
        open('%s/%s%d' % (out, prefix, count), 'wb').write(element)
        if tag in (0xA3, 0xA0) and depth == 2 and b[body] == 0x30:
            open('%s/ext-%s%d' % (out, prefix, count), 'wb').write(element)
            open('%s/ext-%s%d-bare' % (out, prefix, count), 'wb').write(element[body - i:])
        count += 1
        if tag & 0x20 and depth < 8:
            walk(b, body, body + n, depth + 1)
        i = body + n

walk(data, 0, len(data), 0)
EOF
mkdir -p parts
for f in hf1.der of1.der of2.der hf.crl of.crl h1.req; do python3 parts.py $f parts "${f%%.*}-"; done
seed fuzz_extensions parts/ext-*
# Small elements, one per distinct pair of leading octets (tag and length), at most 36,
# and three whole structures.
declare -A kept=()
small=()
for f in parts/*-*; do
  case $f in parts/ext-*) continue ;; esac
  [ "$(stat -c %s "$f")" -le 64 ] || continue
  key=$(head -c 2 "$f" | xxd -p)
  [ -z "${kept[$key]:-}" ] && [ ${#small[@]} -lt 36 ] || continue
  kept[$key]=1
  small+=("$f")
done
seed fuzz_asn1_decoders "${small[@]}" hf1.der of3.der h1.pub

# ---- envelopes and the block cipher ---------------------------------------------------
head -c 0 /dev/zero >p0
printf 'seven!!' >p7
printf 'eight!!!' >p8
head -c 100 "$top/README.md" >p100
head -c 4096 "$top/README.md" >p4096
head -c 5000 "$top/README.md" >p5000
# Mode 2: a key of its own and the block cipher's output.
key2=00112233445566778899aabbccddeeff
for p in p0 p7 p8 p100 p4096; do
  "$hylorn" enc -i $p -o $p.s --key $key2 >/dev/null
  seed_behind fuzz_envelope 02$key2 $p.s
done
# Mode 1, choice 0: the 16-byte session key wrapped at the target's start-up.
key1=3c434a51585f666d747b828990979ea5
for p in p0 p8 p100 p5000; do
  "$hylorn" enc -i $p -o $p.e1 --key $key1 >/dev/null
  seed_behind fuzz_envelope 0100 $p.e1
done
# Mode 0: whole envelopes to the fixed key, by the library, and by OpenSSL's RSA around
# the library's cipher text.
for p in p0 p7 p100 p4096; do
  "$hylorn" enc -i $p -o $p.env --cert root.pem >/dev/null
  seed_behind fuzz_envelope 00 $p.env
done
hex $key2 >session
openssl pkeyutl -encrypt -pubin -inkey <(openssl x509 -in root.pem -pubkey -noout) \
  -pkeyopt rsa_padding_mode:pkcs1 -in session -out wrapped
cat wrapped p100.s >mixed.env
seed_behind fuzz_envelope 00 mixed.env

# ---- signatures under the fixed key ---------------------------------------------------
# The second octet picks the hash number (octet % 12 - 2): 3 MD2 -> 1, 4 -> MD5 2,
# 5 -> SHA-1 3. Mode 0 takes a length octet, the signature, then the data.
for md in md5:04 sha1:05; do
  printf 'data signed by OpenSSL' >data
  openssl dgst -"${md%%:*}" -sign fixed.pem -out sig data
  { hex "00${md##*:}80"; cat sig data; } >s0
  seed fuzz_signature s0
done
# Mode 1: a flag (lead with the DigestInfo), a length, block octets, the data.
{ hex 01050100; printf 'no block'; } >s1a
{ hex 0105010400000000; printf 'with trailing'; } >s1b
{ hex 0104000a000102030405060708090a; printf 'short block'; } >s1c
# Mode 2: two octets pick the flipped bit, then the data.
{ hex 02030000; printf 'md2'; } >s2a
{ hex 02050180; printf 'flip the data'; } >s2b
{ hex 02080780; } >s2c
seed fuzz_signature s1a s1b s1c s2a s2b s2c

# ---- keep the corpora small -------------------------------------------------------------
find "$corpus" -type f -size +8k -delete
for d in "$corpus"/*/; do
  echo "$(basename "$d"): $(find "$d" -type f | wc -l) files"
done

#!/usr/bin/env bash
# A small certification authority from nothing: a root CA and an intermediate CA, a
# server key and request, both certificates issued, one serial revoked, the CRL written,
# the chain built and verified by hylorn and, where they are installed, by OpenSSL and
# GnuTLS's certtool. Usage: demo.sh HYLORN_BINARY OUTPUT_FOLDER
set -euo pipefail
hylorn=$(realpath "$1")
out=$2
rm -rf "$out"
mkdir -p "$out"
cd "$out"
log=demo.log
: >"$log"
started=$(date +%s%N)
steps=0

step() {  # step "what is done" command...
  local what=$1
  shift
  steps=$((steps + 1))
  printf '%2d. %s\n' "$steps" "$what"
  echo "\$ $*" >>"$log"
  if ! "$@" >>"$log" 2>&1; then
    echo "    failed; the last lines of $out/$log:" >&2
    tail -n 15 "$log" >&2
    exit 1
  fi
}

echo "Running a small CA in $out (commands and their output in $out/$log)"
step "Make the root CA: its key, a self-signed certificate valid ten years, its database" \
  "$hylorn" ca init root --subj "/C=CN/O=Hylorn Demo/CN=Hylorn Demo Root CA" --days 3650
step "Make the intermediate CA's key and certificate request" \
  sh -c "'$hylorn' genkey -o intermediate.key -p intermediate.pub &&
         '$hylorn' req -k intermediate.key -o intermediate.req \
           -s '/C=CN/O=Hylorn Demo/OU=Issuing/CN=Hylorn Demo Intermediate CA'"
step "The root CA issues the intermediate's certificate (CA, path length 0, a policy)" \
  "$hylorn" ca issue root -i intermediate.req -o intermediate.pem --ca --pathlen 0 --days 1825 \
  --policy 1.3.6.1.4.1.55555.1=https://ca.example/cps
step "Set up the intermediate CA with that key and certificate" \
  "$hylorn" ca init intermediate --key intermediate.key --cert intermediate.pem
step "Make the server's key and a request for www.example.com" \
  sh -c "'$hylorn' genkey -o server.key -p server.pub &&
         '$hylorn' req -k server.key -o server.req \
           -s '/C=CN/ST=Beijing/L=Haidian/O=Hylorn Demo/OU=Web/CN=www.example.com/emailAddress=webmaster@example.com'"
step "The intermediate CA issues the server certificate (serial 1)" \
  "$hylorn" ca issue intermediate -i server.req -o server.pem --key-usage digitalSignature,keyEncipherment
step "It issues a second one (serial 2), and revokes it: key compromise" \
  sh -c "'$hylorn' ca issue intermediate -i server.req -o server-old.pem &&
         '$hylorn' ca revoke intermediate 2 --reason keyCompromise"
step "Both CAs write their CRLs" \
  sh -c "'$hylorn' ca crl intermediate -o intermediate.crl && '$hylorn' ca crl root -o root.crl"
step "Build the chain: server and intermediate as PKCS #7 and as a DER SET" \
  sh -c "'$hylorn' chain server.pem intermediate.pem --pkcs7 -o chain.p7b &&
         '$hylorn' chain server.pem intermediate.pem --outform der -o chain.der"
step "hylorn verifies the server certificate up to the root, with both CRLs" \
  "$hylorn" verify server.pem -r root/ca.pem -u intermediate.pem -c intermediate.crl -c root.crl
step "hylorn finds the revoked certificate revoked" \
  sh -c "! '$hylorn' verify server-old.pem -r root/ca.pem -u intermediate.pem -c intermediate.crl"
checks="hylorn"
if command -v openssl >/dev/null; then
  cat root.crl intermediate.crl >crls.pem
  step "OpenSSL (security level 0, for 1024-bit RSA and SHA-1) agrees on both" \
    sh -c "openssl verify -auth_level 0 -CAfile root/ca.pem -untrusted intermediate.pem \
             -crl_check_all -CRLfile crls.pem server.pem &&
           ! openssl verify -auth_level 0 -CAfile root/ca.pem -untrusted intermediate.pem \
             -crl_check_all -CRLfile crls.pem server-old.pem &&
           openssl pkcs7 -in chain.p7b -print_certs -noout"
  checks="$checks, OpenSSL"
fi
if command -v certtool >/dev/null; then
  step "GnuTLS certtool (low profile, SHA-1 allowed) agrees on both" \
    sh -c "cat server.pem intermediate.pem >bundle.pem &&
           cat server-old.pem intermediate.pem >bundle-old.pem &&
           certtool --verify-profile=low --verify-allow-broken --verify \
             --load-ca-certificate root/ca.pem --load-crl intermediate.crl --infile bundle.pem &&
           ! certtool --verify-profile=low --verify-allow-broken --verify \
             --load-ca-certificate root/ca.pem --load-crl intermediate.crl --infile bundle-old.pem"
  checks="$checks, certtool"
fi
step "Show what the intermediate CA has issued" "$hylorn" ca list intermediate
ms=$((($(date +%s%N) - started) / 1000000))
echo "Done: 2 CAs, 2 server certificates (1 revoked), 2 CRLs and a chain in $out, verified by $checks, in $((ms / 1000)).$((ms % 1000 / 100)) s."

#!/usr/bin/env bash
# Installs the Debian packages the build, tests and benchmark need, only when missing.
# Usage: scripts/install-deps.sh [test|sanitize|valgrind|bench|fuzz]
set -euo pipefail

# valgrind for everyone: the constant-time test includes its client-request header.
packages=(cmake ninja-build g++ clang libgtest-dev libssl-dev openssl pkg-config libgcrypt20-dev gnutls-bin
          libcli11-dev libsqlite3-dev valgrind)
case "${1:-test}" in
  bench) packages+=(libbenchmark-dev nettle-dev libgcrypt20-dev) ;;
  fuzz | sanitize) packages+=(libclang-rt-14-dev) ;;
  valgrind) ;;  # in the list above
esac

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "installing: ${missing[*]}"
if [ "$(id -u)" -ne 0 ]; then
  echo "run as root, or install these packages: ${missing[*]}" >&2
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq || true
apt-get install -y -qq "${missing[@]}"

#include "crypto/keygen.h"

#include <array>
#include <utility>

#include "crypto/rsa.h"
#include "frame/guard.h"
#include "frame/wipe.h"

namespace hylorn {

namespace {

constexpr u32 kMinBits = 508;
constexpr u32 kMaxBits = MAX_RSA_MODULUS_BITS;
constexpr MP_DIGIT kSmallPrimes[] = {3, 5, 7, 11};
constexpr MP_DIGIT kF4 = 65537;

// a (digits) = the one-digit value v.
void assign_digit(MP_DIGIT* a, MP_DIGIT v, u32 digits) {
  MP_AssignZero(a, digits);
  a[0] = v;
}

bool equals_digit(const MP_DIGIT* a, MP_DIGIT v, u32 digits) {
  return a[0] == v && MP_Digits(a, digits) <= 1;
}

// A base-2 Fermat test can pass for a only if, for every prime r dividing a, the order
// of 2 modulo r divides a - 1 (from 2^(a-1) = 1 mod r). Tracking a modulo the odd primes
// below 2048 along the walk therefore skips, exactly, Fermat tests that would fail: the
// walk accepts the same candidates as with the four trial divisors alone.
struct PrimeWithOrder {
  u16 prime;
  u16 order;  // of 2 modulo prime
};

constexpr u32 kSieveLimit = 2048;

constexpr bool is_prime(u32 v) {
  for (u32 d = 2; d * d <= v; ++d)
    if (v % d == 0) return false;
  return v >= 2;
}

constexpr u32 count_sieve_primes() {
  u32 count = 0;
  for (u32 v = 13; v < kSieveLimit; ++v) count += is_prime(v) ? 1 : 0;
  return count;
}

constexpr auto kSievePrimes = [] {
  std::array<PrimeWithOrder, count_sieve_primes()> table{};
  u32 k = 0;
  for (u32 v = 13; v < kSieveLimit; ++v) {
    if (!is_prime(v)) continue;
    u32 order = 1;
    for (u32 x = 2; x != 1; x = x * 2 % v) ++order;
    table[k++] = {static_cast<u16>(v), static_cast<u16>(order)};
  }
  return table;
}();

// a mod m for a one-digit m.
u32 mod_small(const MP_DIGIT* a, u32 digits, u32 m) {
  u64 r = 0;
  for (u32 i = digits; i-- > 0;) r = ((r << MP_DIGIT_BITS) | a[i]) % m;
  return static_cast<u32>(r);
}

class FermatSieve {
 public:
  FermatSieve(const MP_DIGIT* a, const MP_DIGIT* step, u32 digits) {
    for (size_t i = 0; i < kSievePrimes.size(); ++i) {
      residue_[i] = static_cast<u16>(mod_small(a, digits, kSievePrimes[i].prime));
      step_[i] = static_cast<u16>(mod_small(step, digits, kSievePrimes[i].prime));
    }
  }
  ~FermatSieve() { secure_wipe(residue_, sizeof residue_); }
  FermatSieve(const FermatSieve&) = delete;
  FermatSieve& operator=(const FermatSieve&) = delete;

  void advance() {
    for (size_t i = 0; i < kSievePrimes.size(); ++i) {
      u32 r = residue_[i] + step_[i];
      residue_[i] = static_cast<u16>(r >= kSievePrimes[i].prime ? r - kSievePrimes[i].prime : r);
    }
  }

  // False only when the Fermat test of a is sure to fail.
  bool fermat_may_pass(const MP_DIGIT* a, u32 digits) const {
    for (size_t i = 0; i < kSievePrimes.size(); ++i) {
      if (residue_[i] != 0) continue;
      u32 order = kSievePrimes[i].order;
      if (mod_small(a, digits, order) != 1 % order) return false;
    }
    return true;
  }

 private:
  u16 residue_[kSievePrimes.size()];
  u16 step_[kSievePrimes.size()];
};

// One prime of `bits` bits with its top two bits set, whose predecessor is coprime to e:
// lower = 3 * 2^(bits - 2), upper = 2^bits - 1, odd candidates only.
u32 find_prime(MP_DIGIT* a, u32 bits, const MP_DIGIT* e, u32 digits, RANDOM_STATE* rs) {
  MP_DIGIT lower[MP_MAX_DIGITS], upper[MP_MAX_DIGITS], step[MP_MAX_DIGITS], t[MP_MAX_DIGITS];
  MP_Assign2Exp(lower, bits - 1, digits);
  MP_Assign2Exp(t, bits - 2, digits);
  MP_Add(lower, lower, t, digits);
  MP_Assign2Exp(upper, bits, digits);
  assign_digit(t, 1, digits);
  MP_Sub(upper, upper, t, digits);
  assign_digit(step, 2, digits);
  u32 status;
  do {
    status = Generate_Prime(a, lower, upper, step, digits, rs);
  } while (status == 0 && !RSA_Filter(a, digits, e, 1));
  return status;
}

struct KeyNumbers {
  MP_DIGIT e[MP_MAX_DIGITS], p[MP_MAX_DIGITS], q[MP_MAX_DIGITS];
  MP_DIGIT n[2 * MP_MAX_DIGITS], phi[2 * MP_MAX_DIGITS];
  MP_DIGIT pMinus1[MP_MAX_DIGITS], qMinus1[MP_MAX_DIGITS], one[MP_MAX_DIGITS];
  MP_DIGIT d[MP_MAX_DIGITS], dP[MP_MAX_DIGITS], dQ[MP_MAX_DIGITS], qInv[MP_MAX_DIGITS];
};

void write_records(RSA_PUBLIC_KEY* pub, RSA_PRIVATE_KEY* priv, const KeyNumbers& k, u16 bits,
                   u32 nDigits, u32 pDigits) {
  pub->bits = bits;
  MP_Encode(pub->modulus, MAX_RSA_MODULUS_LEN, k.n, nDigits);
  MP_Encode(pub->exponent, MAX_RSA_MODULUS_LEN, k.e, nDigits);
  priv->bits = bits;
  MP_Encode(priv->modulus, MAX_RSA_MODULUS_LEN, k.n, nDigits);
  MP_Encode(priv->publicExponent, MAX_RSA_MODULUS_LEN, k.e, nDigits);
  MP_Encode(priv->exponent, MAX_RSA_MODULUS_LEN, k.d, nDigits);
  MP_Encode(priv->prime[0], MAX_RSA_PRIME_LEN, k.p, pDigits);
  MP_Encode(priv->prime[1], MAX_RSA_PRIME_LEN, k.q, pDigits);
  MP_Encode(priv->primeExponent[0], MAX_RSA_PRIME_LEN, k.dP, pDigits);
  MP_Encode(priv->primeExponent[1], MAX_RSA_PRIME_LEN, k.dQ, pDigits);
  MP_Encode(priv->coefficient, MAX_RSA_PRIME_LEN, k.qInv, pDigits);
}

// Everything after the seeding: the generator is used as it stands.
u32 generate_keys(RSA_PUBLIC_KEY* pub, RSA_PRIVATE_KEY* priv, const RSA_PROTO_KEY* proto,
                  RANDOM_STATE* rs) {
  u32 bits = proto->bits;
  if (bits < kMinBits || bits > kMaxBits) return RSA_ERR_MODULUS_LEN;
  u32 nDigits = (bits + 31) / 32;
  u32 pBits = (bits + 1) / 2;
  u32 qBits = bits - pBits;
  u32 pDigits = (nDigits + 1) / 2;

  KeyNumbers k = {};
  auto wipe = on_exit([&] { secure_wipe_object(k); });
  k.e[0] = proto->useFermat4 != 0 ? kF4 : 3;
  u32 status = find_prime(k.p, pBits, k.e, pDigits, rs);
  if (status == 0) status = find_prime(k.q, qBits, k.e, pDigits, rs);
  if (status != 0) return status;
  if (MP_Cmp(k.p, k.q, pDigits) < 0) std::swap(k.p, k.q);

  // n = p q, qInv = q^-1 mod p, d = e^-1 mod (p - 1)(q - 1), dP and dQ its residues.
  MP_Mult(k.n, k.p, k.q, pDigits);
  MP_ModInv(k.qInv, k.q, k.p, pDigits);
  k.one[0] = 1;
  MP_Sub(k.pMinus1, k.p, k.one, pDigits);
  MP_Sub(k.qMinus1, k.q, k.one, pDigits);
  MP_Mult(k.phi, k.pMinus1, k.qMinus1, pDigits);
  MP_ModInv(k.d, k.e, k.phi, nDigits);
  MP_Mod(k.dP, k.d, nDigits, k.pMinus1, pDigits);
  MP_Mod(k.dQ, k.d, nDigits, k.qMinus1, pDigits);

  write_records(pub, priv, k, static_cast<u16>(bits & 0xFFFF), nDigits, pDigits);
  return 0;
}

}  // namespace

u32 RSA_Generate_Keys(RSA_PUBLIC_KEY* pub, RSA_PRIVATE_KEY* priv, const RSA_PROTO_KEY* proto,
                      RANDOM_STATE* rs) {
  Random_Seed_From_Time(rs);
  return generate_keys(pub, priv, proto, rs);
}

u32 rsa_generate_keys_from_seed_byte(RSA_PUBLIC_KEY* pub, RSA_PRIVATE_KEY* priv,
                                     const RSA_PROTO_KEY* proto, u8 seed) {
  RANDOM_STATE rs;
  Random_Seed_From_Byte(&rs, seed);
  u32 status = generate_keys(pub, priv, proto, &rs);
  secure_wipe_object(rs);
  return status;
}

// A random start in [lower, upper], made 1 modulo step, then a walk by step up to
// upper - step until a probable prime turns up.
u32 Generate_Prime(MP_DIGIT* a, const MP_DIGIT* lower, const MP_DIGIT* upper,
                   const MP_DIGIT* step, u32 digits, RANDOM_STATE* rs) {
  u8 block[4 * MP_MAX_DIGITS];
  MP_DIGIT t[MP_MAX_DIGITS], u[MP_MAX_DIGITS], v[MP_MAX_DIGITS];
  auto wipe = on_exit([&] {
    secure_wipe(block, sizeof block);
    secure_wipe(t, sizeof t);
    secure_wipe(v, sizeof v);
  });
  u32 status = Random_Generate_Bytes(block, digits * 4, rs);
  if (status != 0) return status;
  MP_Decode(t, digits, block, digits * 4);

  // a = t mod (upper - lower + 1) + lower
  assign_digit(v, 1, digits);
  MP_Sub(u, upper, lower, digits);
  MP_Add(u, u, v, digits);
  MP_Mod(v, t, digits, u, digits);
  MP_Add(a, v, lower, digits);

  // a = a - (a mod step) + 1, brought back into [lower, upper]
  MP_Mod(v, a, digits, step, digits);
  MP_Sub(a, a, v, digits);
  assign_digit(v, 1, digits);
  MP_Add(a, a, v, digits);
  if (MP_Cmp(a, lower, digits) < 0) MP_Add(a, a, step, digits);
  if (MP_Cmp(a, upper, digits) > 0) MP_Sub(a, a, step, digits);

  MP_Sub(u, upper, step, digits);  // the last start of a step
  FermatSieve sieve(a, step, digits);
  if (sieve.fermat_may_pass(a, digits) && Probable_Prime(a, digits)) return 0;
  while (MP_Cmp(a, u, digits) <= 0) {
    MP_Add(a, a, step, digits);
    sieve.advance();
    if (sieve.fermat_may_pass(a, digits) && Probable_Prime(a, digits)) return 0;
  }
  return RSA_ERR_DATA;
}

// Trial division by four small primes and a single Fermat test: the whole test.
int Probable_Prime(const MP_DIGIT* a, u32 digits) {
  return !Small_Factor(a, digits) && Fermat_Test(a, digits) ? 1 : 0;
}

int Small_Factor(const MP_DIGIT* a, u32 digits) {
  MP_DIGIT rem = 0;
  int found = 0;
  for (MP_DIGIT prime : kSmallPrimes) {
    if (equals_digit(a, prime, digits)) break;
    MP_Mod(&rem, a, digits, &prime, 1);
    if (rem == 0) {
      found = 1;
      break;
    }
  }
  secure_wipe(&rem, sizeof rem);
  return found;
}

int Fermat_Test(const MP_DIGIT* a, u32 digits) {
  MP_DIGIT two[MP_MAX_DIGITS], u[MP_MAX_DIGITS];
  assign_digit(two, 2, digits);
  MP_ModExp(u, two, a, digits, a, digits);
  int pass = MP_Cmp(u, two, digits) == 0 ? 1 : 0;
  secure_wipe(u, sizeof u);
  return pass;
}

int RSA_Filter(const MP_DIGIT* a, u32 aDigits, const MP_DIGIT* e, u32 eDigits) {
  MP_DIGIT aMinus1[MP_MAX_DIGITS], one[MP_MAX_DIGITS];
  assign_digit(one, 1, aDigits);
  MP_Sub(aMinus1, a, one, aDigits);
  int coprime = Relatively_Prime(aMinus1, aDigits, e, eDigits);
  secure_wipe(aMinus1, sizeof aMinus1);
  return coprime;
}

int Relatively_Prime(const MP_DIGIT* a, u32 aDigits, const MP_DIGIT* b, u32 bDigits) {
  MP_DIGIT t[MP_MAX_DIGITS] = {};
  MP_Assign(t, b, bDigits < aDigits ? bDigits : aDigits);
  MP_Gcd(t, a, t, aDigits);
  int coprime = equals_digit(t, 1, aDigits) ? 1 : 0;
  secure_wipe(t, sizeof t);
  return coprime;
}

int Rsa_Gen_Key_Pair(int, RSA_PUBLIC_KEY* pub, RSA_PRIVATE_KEY* priv) {
  RSA_PROTO_KEY proto{kMaxBits, 1};
  RSA_PUBLIC_KEY newPub;
  RSA_PRIVATE_KEY newPriv;
  auto wipe = on_exit([&] { secure_wipe_object(newPriv); });
  if (RSA_Generate_Keys(&newPub, &newPriv, &proto, module_random_state()) != 0) return 0;
  *pub = newPub;
  *priv = newPriv;
  return 1;
}

}  // namespace hylorn

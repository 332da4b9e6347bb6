#include "crypto/Des.h"

#include <array>
#include <cstring>

#include "KeyMaterial.h"

namespace {
constexpr const unsigned char (*SBOXES[8])[4] = {
    Des::MODIFIED_SBOX_1, Des::MODIFIED_SBOX_2, Des::MODIFIED_SBOX_3, Des::MODIFIED_SBOX_4,
    Des::MODIFIED_SBOX_5, Des::MODIFIED_SBOX_6, Des::MODIFIED_SBOX_7, Des::MODIFIED_SBOX_8};

// The rounds work on 32-bit words, the first bit of a half at the top. The
// expansion E is two rotations of the right half: rotated right by 3, its
// bytes hold the inputs of S1, S3, S5 and S7 in their low six bits (from
// the top byte down); rotated left by 1, those of S2, S4, S6 and S8. The
// subkeys are laid out the same way (see Des::schedule). This checks the
// rotations against E.
constexpr bool expansionIsTwoRotations() {
    for (int j = 0; j < 48; ++j) {
        const int group = j / 6;
        // The bit of the rotated word that takes bit j of E, and the bit of
        // the right half it comes from, counted from the bottom.
        const int bit = 24 - 8 * (group / 2) + 5 - j % 6;
        const int from = (bit + (group % 2 ? 31 : 3)) % 32;
        if (Des::EXPANSION_PERMUTATION[j] != 32 - from)
            return false;
    }
    return true;
}
static_assert(expansionIsTwoRotations(), "E is not what the rounds compute");

// Bit j of a subkey in the packed form, the first word in the top half.
constexpr uint64_t subkeyBit(int j) {
    const int group = j / 6;
    return uint64_t{1} << (32 * (1 - group % 2) + 24 - 8 * (group / 2) + 5 - j % 6);
}

// The S-boxes followed by P: sp[s][x] is the output of P when S-box s gets
// the 6-bit input x (first bit at the top) and the other S-boxes give 0.
struct SpTables {
    uint32_t sp[8][64];
};

constexpr SpTables makeSpTables() {
    SpTables t{};
    for (int s = 0; s < 8; ++s) {
        for (int x = 0; x < 64; ++x) {
            // The row is the outer two bits, the column the inner four.
            const unsigned char* out = SBOXES[s][((x >> 4 & 2) | (x & 1)) * 16 + (x >> 1 & 15)];
            for (int j = 0; j < 32; ++j) {
                const int y = Des::PBOX_PERMUTATION[j] - 1;
                if (y / 4 == s && out[y % 4])
                    t.sp[s][x] |= uint32_t{1} << (31 - j);
            }
        }
    }
    return t;
}
constexpr SpTables SP = makeSpTables();

// PC-2 by table: C and D form a 56-bit word, C's first bit at bit 55, and
// bits[q][v] is the packed subkey that PC-2 selects from the value v of
// bits 7q to 7q + 6 when all the other bits are 0.
struct Pc2Tables {
    uint64_t bits[8][128];
};

constexpr Pc2Tables makePc2Tables() {
    Pc2Tables t{};
    for (int j = 0; j < 48; ++j) {
        const int from = 56 - Des::COMPRESSION_PERMUTATION[j];
        for (int v = 0; v < 128; ++v)
            if (v >> (from % 7) & 1)
                t.bits[from / 7][v] |= subkeyBit(j);
    }
    return t;
}
constexpr Pc2Tables PC2 = makePc2Tables();

// Bit arrays to words and back, eight bits at a time: the eight bytes are
// taken as one word, the first at the bottom (compilers make this a single
// load), and one multiplication moves each bit to its place; no two partial
// products meet, so nothing carries.
constexpr unsigned packByte(const unsigned char* b) {
    const uint64_t word = uint64_t{b[0]} | uint64_t{b[1]} << 8 | uint64_t{b[2]} << 16 |
                          uint64_t{b[3]} << 24 | uint64_t{b[4]} << 32 | uint64_t{b[5]} << 40 |
                          uint64_t{b[6]} << 48 | uint64_t{b[7]} << 56;
    return static_cast<unsigned>(word * 0x8040201008040201 >> 56);
}

void unpackByte(unsigned byte, unsigned char* bits) {
    const uint64_t word = (byte * 0x8040201008040201 >> 7) & 0x0101010101010101;
    for (int i = 0; i < 8; ++i)
        bits[i] = static_cast<unsigned char>(word >> 8 * i);
}

// n bits, a multiple of 8, the first at the top of the word.
constexpr uint64_t packBits(const unsigned char* bits, int n) {
    uint64_t word = 0;
    for (int i = 0; i < n; i += 8)
        word = word << 8 | packByte(bits + i);
    return word;
}

void unpackBits(uint64_t word, unsigned char* bits, int n) {
    for (int i = 0; i < n; i += 8)
        unpackByte(word >> (n - 8 - i) & 255, bits + i);
}

// Rotates C and D, the two 28-bit halves of a 56-bit key word, left by n.
constexpr uint64_t rotateHalves(uint64_t cd, int n) {
    const uint64_t low = ((uint64_t{1} << n) - 1) * 0x10000001;  // the n low bits of each half
    return ((cd << n) & 0xFFFFFFFFFFFFFF & ~low) | ((cd >> (28 - n)) & low);
}

// The round function: expansion, subkey, S-boxes and P.
uint32_t f(uint32_t right, const uint32_t* subkey) {
    const uint32_t odd = (right >> 3 | right << 29) ^ subkey[0];
    const uint32_t even = (right << 1 | right >> 31) ^ subkey[1];
    uint32_t out = 0;
    for (int lane = 0; lane < 4; ++lane) {
        const int shift = 24 - 8 * lane;
        out |= SP.sp[2 * lane][odd >> shift & 63] | SP.sp[2 * lane + 1][even >> shift & 63];
    }
    return out;
}

// The 16 subkeys of a 56-bit key word.
constexpr void buildSchedule(uint64_t cd, uint32_t (*schedule)[2]) {
    for (int r = 0; r < 16; ++r) {
        cd = rotateHalves(cd, Des::KEY_SHIFT[r]);
        uint64_t subkey = 0;
        for (int q = 0; q < 8; ++q)
            subkey |= PC2.bits[q][cd >> 7 * q & 127];
        schedule[r][0] = static_cast<uint32_t>(subkey >> 32);
        schedule[r][1] = static_cast<uint32_t>(subkey);
    }
}

// Every password derivation runs its state through the mixing keys, so
// their schedules are built at compile time; initialize looks a key up here
// before it builds a schedule.
struct KnownSchedule {
    uint64_t key;
    uint32_t schedule[16][2];
};

constexpr std::array<KnownSchedule, 18> makeMixerSchedules() {
    const unsigned char mixers[18][56] = {TESSAVANT_MIXER1,  TESSAVANT_MIXER2,  TESSAVANT_MIXER3,
                                          TESSAVANT_MIXER4,  TESSAVANT_MIXER5,  TESSAVANT_MIXER6,
                                          TESSAVANT_MIXER7,  TESSAVANT_MIXER8,  TESSAVANT_MIXER9,
                                          TESSAVANT_MIXER10, TESSAVANT_MIXER11, TESSAVANT_MIXER12,
                                          TESSAVANT_MIXER13, TESSAVANT_MIXER14, TESSAVANT_MIXER15,
                                          TESSAVANT_MIXER16, TESSAVANT_MIXER17, TESSAVANT_MIXER18};
    std::array<KnownSchedule, 18> known{};
    for (int m = 0; m < 18; ++m) {
        known[m].key = packBits(mixers[m], 56);
        buildSchedule(known[m].key, known[m].schedule);
    }
    return known;
}
constexpr std::array<KnownSchedule, 18> MIXER_SCHEDULES = makeMixerSchedules();
}  // namespace

Des::Des() : schedule() {}

void Des::shiftHalfKeyLeft(unsigned char* half) {
    const unsigned char first = half[0];
    std::memmove(half, half + 1, 27);
    half[27] = first;
}

void Des::initialize(const unsigned char* key) {
    const uint64_t cd = packBits(key, 56);
    for (const KnownSchedule& known : MIXER_SCHEDULES) {
        if (known.key == cd) {
            std::memcpy(schedule, known.schedule, sizeof schedule);
            return;
        }
    }
    buildSchedule(cd, schedule);
}

void Des::crypt(unsigned char* block, bool encrypt) {
    unpackBits(rounds(packBits(block, 64), encrypt), block, 64);
}

uint64_t Des::rounds(uint64_t block, bool encrypt) const {
    uint32_t left = static_cast<uint32_t>(block >> 32);
    uint32_t right = static_cast<uint32_t>(block);
    for (int round = 0; round < 16; ++round) {
        const uint32_t next = left ^ f(right, schedule[encrypt ? round : 15 - round]);
        left = right;
        right = next;
    }
    // No swap after the last round: the loop's last one is undone here.
    return uint64_t{right} << 32 | left;
}

const char* Des::xmix(const char* text, unsigned char* state, const unsigned char* mixer) {
    uint64_t mixed = packBits(state, 64);
    for (int g = 0; g < 8; ++g) {
        const unsigned char c = static_cast<unsigned char>(*text);
        mixed ^= uint64_t{c} << (56 - 8 * g);
        // Past the end of the text the NUL is mixed in again and again.
        if (c != 0)
            ++text;
    }
    initialize(mixer);
    unpackBits(rounds(mixed, true), state, 64);
    return text;
}

void Des::password(const char* text) {
    unsigned char state[64] = {};
    const char* position = text;
    position = xmix(position, state, MIXER1);
    position = xmix(position, state, MIXER2);
    position = xmix(position, state, MIXER3);
    xmix(position, state, MIXER4);
    // The last 8 bits of the state are not part of the key.
    initialize(state);
}

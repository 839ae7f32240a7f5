#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "QENFoundation/QENChaCha20.h"
#include "QENFoundation/QENNetworkEndianHexString.h"
#include "QENFoundation/QENRandom.h"

namespace {

std::string hex(const std::byte* bytes, std::size_t count) {
  return QENFoundation::qen_hexString(std::span<const std::byte>(bytes, count));
}

// Key 00 01 .. 1f, as in the ChaCha20 test vector of RFC 8439, section 2.3.2.
std::array<std::uint32_t, 16> stateWithCounter(std::uint32_t counter, std::uint32_t word13,
                                               std::uint32_t word14) {
  std::array<std::uint32_t, 16> state = {0x61707865, 0x3320646e, 0x79622d32, 0x6b206574};
  for (std::uint32_t word = 0; word < 8; ++word) {
    const std::uint32_t base = word * 4;
    state[4 + word] = base | (base + 1) << 8 | (base + 2) << 16 | (base + 3) << 24;
  }
  state[12] = counter;
  state[13] = word13;
  state[14] = word14;
  return state;
}

using QENFoundation::QENChaCha20Implementation;

std::vector<std::string> blockPrefixes(const std::array<std::uint32_t, 16>& state,
                                       QENChaCha20Implementation implementation) {
  std::array<std::byte, QENFoundation::kChaCha20BytesPerCall> keystream{};
  QENFoundation::QENChaCha20Blocks(state, keystream, implementation);
  std::vector<std::string> prefixes;
  for (std::size_t block = 0; block < 8; ++block) {
    prefixes.push_back(hex(&keystream[block * 64], 16));
  }
  return prefixes;
}

// Expected values computed independently with `openssl enc -chacha20`.
void expectReferenceKeystream(QENChaCha20Implementation implementation) {
  std::array<std::byte, QENFoundation::kChaCha20BytesPerCall> keystream{};
  QENFoundation::QENChaCha20Blocks(stateWithCounter(1, 0x09000000, 0x4a000000), keystream,
                                   implementation);
  EXPECT_EQ(hex(keystream.data(), 64),
            "10f1e7e4d13b5915500fdd1fa32071c4c7d1f4c733c068030422aa9ac3d46c4e"
            "d2826446079faa0914c2d705d98b02a2b5129cd1de164eb9cbd083e8a2503c4e");
  EXPECT_EQ(blockPrefixes(stateWithCounter(0xffffffff, 7, 0), implementation),
            (std::vector<std::string>{
                "14f88aa61e2ed8575ba8882863b6d720", "523ca906198fedcb67d08f3bb50e4f34",
                "2ccf12dfd85c0445cf395f0412178925", "a6007dbb886a1eb4cd13c5f9e5cc8fc0",
                "1df8c5a7d3f588a3de8b402a9e3170d9", "4cef1864d858747cf30d082d7212a8e7",
                "f60605cddcbb1daa775f76dcecf757f2", "278f5044a49f8c1fd512fb38e42a7c9e"}));
}

TEST(QENChaCha20, MatchesTheReferenceKeystreamIncludingTheCounterCarry) {
  expectReferenceKeystream(QENChaCha20Implementation::kPortable);
  if (QENFoundation::QENChaCha20PreferredImplementation() ==
      QENChaCha20Implementation::kWideVectors) {
    expectReferenceKeystream(QENChaCha20Implementation::kWideVectors);
  }
}

// More than one reseed interval, drawn in odd-sized pieces across batch boundaries.
TEST(QENRandom, BytesAreEvenlySpreadAcrossBatchesAndReseeds) {
  std::vector<unsigned char> bytes(3 << 20);
  for (std::size_t offset = 0; offset < bytes.size(); offset += 1000)
    QENFoundation::arc4random_buf(&bytes[offset],
                                  std::min<std::size_t>(1000, bytes.size() - offset));
  std::array<std::size_t, 256> histogram{};
  for (const unsigned char byte : bytes)
    ++histogram[byte];
  for (const std::size_t count : histogram)
    EXPECT_NEAR(count, bytes.size() / 256.0, bytes.size() / 256.0 * 0.05);
}

// Each child reseeds from the system on its first draw: no two of them, nor the parent, share a
// stream.
TEST(QENRandom, ForkedChildrenDrawOtherBytesThanTheirParentAndEachOther) {
  std::uint64_t draws[3] = {};  // the children's, then the parent's
  constexpr std::size_t kChildrensBytes = 2 * sizeof draws[0];
  // The parent is seeded before it forks.
  QENFoundation::arc4random_buf(&draws[2], sizeof draws[2]);
  int pipeEnds[2];
  ASSERT_EQ(::pipe(pipeEnds), 0);
  pid_t children[2];
  for (pid_t& child : children) {
    child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      std::uint64_t draw = 0;
      QENFoundation::arc4random_buf(&draw, sizeof draw);
      ::_exit(::write(pipeEnds[1], &draw, sizeof draw) == sizeof draw ? 0 : 1);
    }
  }
  QENFoundation::arc4random_buf(&draws[2], sizeof draws[2]);
  for (std::size_t got = 0; got < kChildrensBytes;) {
    const ssize_t read =
        ::read(pipeEnds[0], reinterpret_cast<char*>(draws) + got, kChildrensBytes - got);
    ASSERT_GT(read, 0);
    got += static_cast<std::size_t>(read);
  }
  for (const pid_t child : children)
    ::waitpid(child, nullptr, 0);
  ::close(pipeEnds[0]);
  ::close(pipeEnds[1]);
  EXPECT_TRUE(draws[0] != draws[1] && draws[0] != draws[2] && draws[1] != draws[2]);
}

}  // namespace

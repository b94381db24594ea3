// The choice of a device format, periods, names and the kernel's text: pure functions.
#include "platform/audio/alsa/AlsaFormat.h"

#include <gtest/gtest.h>

#include "platform/audio/alsa/AlsaCards.h"
#include "platform/audio/alsa/AlsaDevice.h"

namespace velorin {
namespace {

using vector::PCMWord;

StreamFormat stream(std::uint32_t bits, std::uint32_t flags) {
  return {.sampleRate = 44'100,
          .formatFlags = flags | kPCMNonInterleaved,
          .bytesPerPacket = bits / 8,
          .bytesPerFrame = bits / 8,
          .channelsPerFrame = 2,
          .bitsPerChannel = bits};
}

const StreamFormat kFloat = stream(32, kPCMFloat | kPCMPacked);
const StreamFormat kInt16 = stream(16, kPCMSignedInteger | kPCMPacked);
const StreamFormat kInt24 = stream(32, kPCMSignedInteger);
const StreamFormat kInt32 = stream(32, kPCMSignedInteger | kPCMPacked);

constexpr AlsaFormatOffer k16{PCMWord::int16, 16};
constexpr AlsaFormatOffer k24Packed{PCMWord::int24Packed, 24};
constexpr AlsaFormatOffer k24Low{PCMWord::int24Low, 24};
constexpr AlsaFormatOffer k32{PCMWord::int32, 32};
constexpr AlsaFormatOffer kFloatOffer{PCMWord::float32, 32};

struct Case {
  const char* what;
  StreamFormat stream;
  std::vector<AlsaFormatOffer> offers;
  std::optional<AlsaFormatOffer> expected;  // its bits: those of the stream that get through
  bool converted = false;
  const char* text = "";  // part of the refusal
};

TEST(AlsaFormat, TheDeviceFormatKeepsEveryBitOrIsRefused) {
  const AlsaFormatOffer codec{PCMWord::int32, 24};  // 32-bit words of which 24 bits count
  const AlsaFormatOffer poor{PCMWord::int32, 20};
  const std::vector<Case> cases = {
      {"16 in 16", kInt16, {k16, k24Packed, k24Low, k32, kFloatOffer}, k16},
      {"16 in packed 24", kInt16, {k24Packed, k24Low, k32}, {{PCMWord::int24Packed, 16}}},
      {"16 in low 24", kInt16, {k24Low, k32}, {{PCMWord::int24Low, 16}}},
      {"16 in 20 of 32", kInt16, {poor}, {{PCMWord::int32, 16}}},
      {"16 needs integers", kInt16, {kFloatOffer}, {}, false, "no 16-bit integer"},
      {"24 in 32", kInt24, {k16, k24Packed, k24Low, k32, kFloatOffer}, {{PCMWord::int32, 24}}},
      {"24 in 24 of 32", kInt24, {k16, codec}, {{PCMWord::int32, 24}}},
      {"24 in packed 24", kInt24, {k16, k24Packed, k24Low}, k24Packed},
      {"24 around a poor 32", kInt24, {poor, k24Low}, k24Low},
      {"24 in 20", kInt24, {k16, poor}, {}, false, "the stream has 24, the device takes 20"},
      {"32 in 32", kInt32, {k16, k24Packed, k32}, k32},
      {"32 in 24 of 32", kInt32, {codec}, {}, false, "the stream has 32, the device takes 24"},
      {"32 in 24", kInt32, {k16, k24Packed}, {}, false, "would lose bits"},
      {"float in float", kFloat, {k16, k32, kFloatOffer}, kFloatOffer},
      {"float in 32", kFloat, {k16, k24Low, k32}, {{PCMWord::int32, 24}}, true},
      {"float in packed 24", kFloat, {k16, k24Low, k24Packed}, k24Packed, true},
      {"float in low 24", kFloat, {k16, k24Low}, k24Low, true},
      {"nothing offered", kFloat, {}, {}, false, "no 24-bit float"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    AlsaFormatChoice choice;
    const AudioStatus status = chooseAlsaFormat(c.stream, c.offers, choice);
    ASSERT_EQ(status.ok(), c.expected.has_value()) << status.text;
    if (c.expected) {
      EXPECT_EQ(choice.word, c.expected->word);
      EXPECT_EQ(choice.bits, c.expected->significantBits);
      EXPECT_EQ(choice.converted, c.converted);
    } else {
      EXPECT_EQ(status.code, -EINVAL);
      EXPECT_NE(status.text.find(c.text), std::string::npos) << status.text;
    }
  }
}

TEST(AlsaFormat, ChannelsAreExactOrTheNextLargerCount) {
  const std::vector<std::uint32_t> offered = {2, 4, 8};
  EXPECT_EQ(chooseAlsaChannels(2, offered), 2u);
  EXPECT_EQ(chooseAlsaChannels(1, offered), 2u);
  EXPECT_EQ(chooseAlsaChannels(6, offered), 8u);
  EXPECT_EQ(chooseAlsaChannels(9, offered), 0u);
  EXPECT_EQ(chooseAlsaChannels(1, {}), 0u);
}

TEST(AlsaFormat, MonoGoesToTheFirstTwoChannelsAndTheRestIsSilent) {
  const std::array<std::int16_t, 2> left = {1, -2};
  const std::array<std::int16_t, 2> zero = {};
  AudioBufferList mono;
  mono.bufferCount = 1;
  mono.buffers[0] = {sizeof left, const_cast<std::int16_t*>(left.data())};
  std::array<std::int16_t, 8> out;
  auto* bytes = reinterpret_cast<std::byte*>(out.data());
  packForDevice(kInt16, mono, zero.data(), {PCMWord::int16, 4, true}, 2, bytes);
  EXPECT_EQ(out, (std::array<std::int16_t, 8>{1, 1, 0, 0, -2, -2, 0, 0}));
  packForDevice(kInt16, mono, zero.data(), {PCMWord::int16, 4, false}, 2, bytes);
  EXPECT_EQ(out, (std::array<std::int16_t, 8>{1, -2, 1, -2, 0, 0, 0, 0}));
}

TEST(AlsaDevice, PeriodsGrowWithTheRateAndStayShort) {
  EXPECT_EQ(periodLimit(48'000), 4096u);
  EXPECT_EQ(periodLimit(384'000), 32'768u);
  for (const double rate : {8'000., 44'100., 88'200., 176'400., 352'800., 768'000.}) {
    // The engine lowers a rate whose largest buffer holds less than 40 ms.
    EXPECT_GE(periodLimit(rate) / rate, 0.04) << rate;
  }
  EXPECT_EQ(AlsaDevice::bufferFramesFor(4096, 44'100), 8192u);
  EXPECT_EQ(AlsaDevice::bufferFramesFor(256, 44'100), 1024u);
}

TEST(AlsaCards, HardwareNamesAreTakenApart) {
  const auto isParsed = [](const char* name, const char* card, int device) {
    const auto parsed = parseHardwareName(name);
    return parsed && parsed->card == card && parsed->device == device;
  };
  EXPECT_TRUE(isParsed("hw:0,3", "0", 3));
  EXPECT_TRUE(isParsed("hw:PCH,0", "PCH", 0));
  EXPECT_TRUE(isParsed("hw:1", "1", 0));
  EXPECT_TRUE(isParsed("hw:CARD=D90,DEV=2", "D90", 2));
  for (const char* other :
       {"default", "hw:", "hw:,0", "hw:0,x", "hw:0,-1", "plughw:0,0", "hw:0,0,1"}) {
    EXPECT_FALSE(parseHardwareName(other)) << other;
  }
}

TEST(AlsaCards, TheTransportFollowsFromDriverNameAndBus) {
  EXPECT_EQ(alsaTransport("USB-Audio", "USB Audio", "usb"), TransportType::usb);
  EXPECT_EQ(alsaTransport("HDA-Intel", "HDMI 0", "pci"), TransportType::hdmi);
  EXPECT_EQ(alsaTransport("HDA-Intel", "ALC257 Analog", "pci"), TransportType::builtIn);
  EXPECT_EQ(alsaTransport("Virtuoso", "Multichannel", "pci"), TransportType::pci);
  EXPECT_EQ(alsaTransport("bcm2835", "Headphones", "platform"), TransportType::builtIn);
  EXPECT_EQ(alsaTransport("Fireworks", "", "firewire"), TransportType::fireWire);
  EXPECT_EQ(alsaTransport("Loopback", "", "platform"), TransportType::virtualDevice);
  EXPECT_EQ(alsaTransport("", "", ""), TransportType::unknown);
}

TEST(AlsaCards, WhatTheKernelGrantedIsRead) {
  const auto params = parseKernelParams(
      "access: RW_INTERLEAVED\nformat: S24_3LE\nsubformat: STD\nchannels: 2\n"
      "rate: 44100 (132299/3)\nperiod_size: 4096\nbuffer_size: 8192\n");
  ASSERT_TRUE(params);
  EXPECT_EQ(params->format, "S24_3LE");
  EXPECT_EQ(params->channels, 2u);
  EXPECT_DOUBLE_EQ(params->rate, 132299.0 / 3);
  EXPECT_EQ(params->periodFrames, 4096u);
  EXPECT_EQ(params->bufferFrames, 8192u);
  EXPECT_DOUBLE_EQ(parseKernelParams("format: S16_LE\nrate: 48000 (48000/0)\n")->rate, 48'000);
  EXPECT_FALSE(parseKernelParams("closed\n"));
  EXPECT_FALSE(parseKernelParams("no setup\n"));
  EXPECT_FALSE(parseKernelParams(""));
}

}  // namespace
}  // namespace velorin

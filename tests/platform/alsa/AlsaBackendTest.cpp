// The ALSA backend over scripted devices in the real library: what is rendered arrives bit for bit,
// and a device that misbehaves ends or goes on as promised.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>

#include "foundation/Log.h"
#include "foundation/SerialQueue.h"
#include "platform/alsa/AlsaPlayback.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;
using vector::PCMWord;
using namespace test;

// --- Bits ---

TEST(AlsaBackend, EveryStreamArrivesBitForBitInEveryDeviceFormatThatHoldsIt) {
  const std::vector<std::pair<const char*, PCMWord>> words = {{"S16_LE", PCMWord::int16},
                                                              {"S24_3LE", PCMWord::int24Packed},
                                                              {"S24_LE", PCMWord::int24Low},
                                                              {"S32_LE", PCMWord::int32},
                                                              {"FLOAT_LE", PCMWord::float32}};
  struct Stream {
    const char* name;
    StreamFormat format;
    std::vector<bool> isTaken;  // by word
    std::vector<std::uint32_t> bits;
  };
  const std::vector<Stream> streams = {
      {"int16", kInt16, {true, true, true, true, false}, {16, 16, 16, 16, 0}},
      {"int24", kInt24, {false, true, true, true, false}, {0, 24, 24, 24, 0}},
      {"int32", kInt32, {false, false, false, true, false}, {0, 0, 0, 32, 0}},
      {"float", kFloat, {true, true, true, true, true}, {16, 24, 24, 24, 32}}};
  constexpr std::uint64_t kFrames = 20'000;
  for (const Stream& s : streams) {
    for (std::size_t w = 0; w < words.size(); ++w) {
      const auto& [alsaName, word] = words[w];
      SCOPED_TRACE(fmt::format("{} on {}", s.name, alsaName));
      const std::string pcm = fmt::format("bits_{}_{}", s.name, alsaName);
      AlsaConfiguration::instance().addStereo(pcm, alsaName);
      Playing playing(s.format);
      const AudioStatus status = playing.play(pcm);
      ASSERT_EQ(status.ok(), s.isTaken[w]) << status.description();
      if (!status.ok()) {
        EXPECT_EQ(status.code, -EINVAL);
        continue;
      }
      ASSERT_TRUE(playing.renders(kFrames));
      const OutputReport report = playing.unit->report();
      playing.unit->stop();
      EXPECT_EQ(report.deviceFormat, alsaName);
      EXPECT_EQ(report.deviceBits, s.bits[w]);
      EXPECT_EQ(report.deviceRate, 48'000);
      EXPECT_EQ(report.converted, s.format.isFloat() && word != PCMWord::float32);
      EXPECT_FALSE(report.exclusive);
      EXPECT_FALSE(playing.renderer.leftScope);
      const std::vector<std::byte> bytes = AlsaConfiguration::instance().tapped(pcm);
      ASSERT_GE(bytes.size(), (kFrames - 4096) * 2 * vector::bytesPerWord(word));
      EXPECT_TRUE(expectedBytes(s.format, word, bytes.size()) == bytes);
    }
  }
}

TEST(AlsaBackend, MonoOnAnEightChannelInterfaceAndLongPeriodsInSlices) {
  AlsaConfiguration::instance().addScripted(
      "eight", "formats [ S32_LE ] rates [ 48000 ] channels [ 8 ] period 16384 buffer 65536");
  Playing playing(stream(16, kPCMSignedInteger | kPCMPacked, 1));
  ASSERT_TRUE(playing.prepare("eight").ok());
  ASSERT_TRUE(playing.unit->setMaximumFramesPerSlice(300).ok());
  ASSERT_TRUE(playing.unit->initialize().ok());
  ASSERT_TRUE(playing.unit->start().ok());
  ASSERT_TRUE(playing.renders(3'000));
  playing.unit->stop();
  EXPECT_EQ(playing.renderer.largest, 300u);
  EXPECT_EQ(playing.unit->report().deviceChannels, 8u);
  EXPECT_FALSE(playing.unit->report().converted);
  const std::vector<std::byte> bytes = AlsaConfiguration::instance().tapped("eight");
  std::vector<std::int32_t> samples(bytes.size() / 4);
  std::memcpy(samples.data(), bytes.data(), bytes.size());
  ASSERT_GE(samples.size(), 8 * 2'000u);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const std::int32_t expected = i % 8 < 2 ? noiseSample(i / 8, 0) & ~0xFFFF : 0;
    ASSERT_EQ(samples[i], expected) << i;
  }
}

TEST(AlsaBackend, EveryWayOfHandingOverFramesIsServed) {
  for (const char* access :
       {"RW_INTERLEAVED", "MMAP_INTERLEAVED", "RW_NONINTERLEAVED", "MMAP_NONINTERLEAVED"}) {
    SCOPED_TRACE(access);
    const std::string pcm = fmt::format("access_{}", access);
    // The fault falls where the ring ends, in the middle of a period: a part of it was taken.
    AlsaConfiguration::instance().addStereo(
        pcm, "S32_LE",
        fmt::format("access {} clock 1 period 500 buffer 1700 error EPIPE after 1700", access));
    Playing playing(kInt24);
    const AudioStatus status = playing.play(pcm);
    ASSERT_TRUE(status.ok()) << status.description();
    ASSERT_TRUE(playing.renders(12'000));
    EXPECT_EQ(playing.unit->report().bufferFrames, 1700u);
    playing.unit->stop();
    const std::vector<std::byte> bytes = AlsaConfiguration::instance().tapped(pcm);
    ASSERT_GE(bytes.size(), 8'000u * 8);
    EXPECT_TRUE(expectedBytes(kInt24, PCMWord::int32, bytes.size()) == bytes);
    EXPECT_EQ(playing.unit->report().xruns, 1u);
    EXPECT_EQ(playing.events.lost(), 0);
  }
}

// --- Refusals ---

TEST(AlsaBackend, WhatADeviceDoesNotOfferIsRefusedWithAReason) {
  AlsaConfiguration::instance().addScripted(
      "stereo", "formats [ S16_LE S32_LE ] rates [ 44100 48000 ] channels [ 2 ]");
  Playing playing(kInt16);
  ASSERT_TRUE(playing.prepare("stereo").ok());
  const auto refusal = [&](StreamFormat format) {
    const AudioStatus status = playing.unit->setInputFormat(format);
    return fmt::format("{} {}", status.code, status.text);
  };
  StreamFormat fast = kInt16;
  fast.sampleRate = 96'000;
  EXPECT_EQ(refusal(fast), fmt::format("{} the device does not run at 96000 Hz", -EINVAL));
  fast.sampleRate = 44'100.5;
  EXPECT_EQ(refusal(fast), fmt::format("{} the device does not run at 44100.5 Hz", -EINVAL));
  EXPECT_EQ(refusal(stream(16, kPCMSignedInteger | kPCMPacked, 3)),
            fmt::format("{} the device has fewer than 3 channels", -EINVAL));
  // An uncommon rate is known only when it is tried.
  fast.sampleRate = 47'999;
  EXPECT_TRUE(playing.unit->setInputFormat(fast).ok());
  EXPECT_EQ(playing.unit->initialize().code, -EINVAL);
  // And the refusals left the unit usable.
  ASSERT_TRUE(playing.unit->setInputFormat(kInt16).ok());
  EXPECT_TRUE(playing.unit->initialize().ok());
  EXPECT_EQ(playing.unit->setInputFormat(kInt32).code, -EBUSY);
}

TEST(AlsaBackend, UnknownAndUnopenableNamesAreToldOnce) {
  AlsaAudioHardware hardware(withoutCards());
  EXPECT_TRUE(hardware.devices().empty());
  EXPECT_EQ(hardware.defaultOutputDevice(), kNoDevice);
  const log::Capture capture;
  EXPECT_EQ(hardware.deviceForUID("alsa:no_such_pcm"), kNoDevice);
  EXPECT_TRUE(capture.contains("cannot open ALSA device no_such_pcm")) << capture.lines().size();
  EXPECT_EQ(hardware.deviceForUID("pipewire:x"), kNoDevice);
  EXPECT_EQ(hardware.deviceForUID("alsa:hw:7,0"), kNoDevice);
  AudioStatus status;
  const auto unit = hardware.createOutputUnit(status);
  EXPECT_EQ(unit->setDevice(1).code, -ENODEV);
  EXPECT_EQ(unit->initialize().code, -ENODEV);
  EXPECT_EQ(unit->start().code, -EINVAL);
  EXPECT_EQ(hardware.setNominalSampleRate(5, 48'000).code, -ENODEV);
}

// --- Capabilities and wishes ---

TEST(AlsaBackend, CapabilitiesAreTheDevicesOwn) {
  AlsaConfiguration::instance().addScripted(
      "dac",
      "formats [ S16_LE S24_3LE S32_LE DSD_U32_BE ] rates [ 44100 192000 384000 ] "
      "channels [ 2 4 ] period 65536 buffer 262144");
  AlsaAudioHardware hardware(withoutCards());
  const AudioDeviceID dac = hardware.deviceForUID("alsa:dac");
  ASSERT_NE(dac, kNoDevice);
  EXPECT_EQ(hardware.deviceForUID("alsa:dac"), dac);
  EXPECT_EQ(hardware.devices(), std::vector<AudioDeviceID>{dac});
  EXPECT_EQ(hardware.defaultOutputDevice(), kNoDevice);  // it was named, not found
  EXPECT_EQ(hardware.availableSampleRates(dac),
            (std::vector<RateRange>{{44100, 44100}, {192000, 192000}, {384000, 384000}}));
  EXPECT_EQ(
      hardware.physicalFormats(dac),
      (std::vector<PhysicalFormat>{{16, false, 4}, {24, false, 4}, {32, false, 4}, {1, false, 4}}));
  EXPECT_EQ(hardware.outputChannels(dac), 4u);

  EXPECT_EQ(hardware.nominalSampleRate(dac), 44'100);
  EXPECT_EQ(hardware.setNominalSampleRate(dac, 48'000).code, -EINVAL);
  EXPECT_EQ(hardware.nominalSampleRate(dac), 44'100);
  // The largest buffer serves the fastest rate; what is granted follows the rate that is set.
  ASSERT_TRUE(hardware.bufferFrameSizeRange(dac));
  const std::uint32_t largest = hardware.bufferFrameSizeRange(dac)->maximum;
  EXPECT_EQ(largest, 32'768u);
  ASSERT_TRUE(hardware.setBufferFrameSize(dac, largest).ok());
  EXPECT_EQ(hardware.bufferFrameSize(dac), 4096u);
  ASSERT_TRUE(hardware.setNominalSampleRate(dac, 384'000).ok());
  EXPECT_EQ(hardware.bufferFrameSize(dac), 32'768u);
  EXPECT_EQ(hardware.setBufferFrameSize(dac, largest + 1).code, -EINVAL);
  EXPECT_EQ(hardware.setBufferFrameSize(dac, 0).code, -EINVAL);
}

TEST(AlsaBackend, AHeldDeviceIsListedAndAnsweredFromMemory) {
  auto& configuration = AlsaConfiguration::instance();
  const auto lock = configuration.folder() / "held";
  configuration.addStereo("held", "S16_LE", fmt::format("busy \"{}\"", lock.string()));
  std::ofstream(lock) << "held";
  AlsaAudioHardware hardware(withoutCards());
  const AudioDeviceID device = hardware.deviceForUID("alsa:held");
  ASSERT_NE(device, kNoDevice);
  EXPECT_TRUE(hardware.availableSampleRates(device).empty());
  AudioStatus status;
  const auto unit = hardware.createOutputUnit(status);
  ASSERT_TRUE(unit->setDevice(device).ok());
  EXPECT_EQ(unit->setInputFormat(kInt16).code, -EBUSY);
  std::filesystem::remove(lock);
  EXPECT_EQ(hardware.availableSampleRates(device).size(), 1u);
  std::ofstream(lock) << "held again";
  EXPECT_EQ(hardware.availableSampleRates(device).size(), 1u);
  NoiseRenderer renderer(kInt16);
  ASSERT_TRUE(unit->setRenderCallback(&NoiseRenderer::render, &renderer).ok());
  ASSERT_TRUE(unit->setInputFormat(kInt16).ok());
  EXPECT_EQ(unit->initialize().code, -EBUSY);
  std::filesystem::remove(lock);
  EXPECT_TRUE(unit->initialize().ok());
}

// --- Running ---

TEST(AlsaBackend, APacedDeviceStopsWithoutALateCallbackAndStartsAgain) {
  AlsaConfiguration::instance().addStereo("paced", "S16_LE", "clock 1 period 512 buffer 2048");
  Playing playing(kInt16);
  ASSERT_TRUE(playing.play("paced").ok());
  EXPECT_TRUE(playing.unit->start().ok());  // twice is once
  ASSERT_TRUE(playing.renders(10'000));
  const OutputReport report = playing.unit->report();
  EXPECT_EQ(report.backend, "ALSA");
  EXPECT_GE(report.bufferFrames, 2 * report.periodFrames);
  EXPECT_LE(report.bufferFrames, 2048u);
  EXPECT_FALSE(report.scheduling.empty());
  for (int i = 0; i < 3; ++i) {
    playing.unit->stop();
    EXPECT_GT(playing.unit->framesDropped(), 0u) << "a paced device holds a buffer";
    EXPECT_LE(playing.unit->framesDropped(), report.bufferFrames + report.periodFrames);
    const std::uint32_t calls = playing.renderer.calls;
    const std::uint64_t frames = playing.renderer.frames;
    ASSERT_TRUE(playing.unit->start().ok());
    ASSERT_TRUE(playing.renders(frames + 4'000));
    EXPECT_GT(playing.renderer.calls, calls);
  }
  playing.unit->stop();
  const std::uint32_t calls = playing.renderer.calls;
  std::this_thread::sleep_for(60ms);  // several periods, in which nothing may happen
  EXPECT_EQ(playing.renderer.calls, calls);
  playing.unit->uninitialize();
  EXPECT_EQ(playing.events.lost(), 0);
}

struct Fault {
  const char* name;
  const char* script;
  bool isLost;
  int xruns;  // at least
};

TEST(AlsaBackend, FaultsAreRecoveredFromOrEndTheStreamOnce) {
  const std::vector<Fault> faults = {
      {"xrun", "error EPIPE after 9000", false, 1},
      {"xruns", "error EPIPE after 9000 times 4", false, 4},
      {"suspend", "error ESTRPIPE after 9000", false, 1},
      {"unplugged", "error ENODEV after 9000", true, 0},
      // As a plug-in whose server died: each restart is accepted, each write fails.
      {"dead", "error EPIPE after 9000 times -1", true, 1},
      {"stalled", "error STALL after 9000", true, 0},
  };
  for (const Fault& fault : faults) {
    SCOPED_TRACE(fault.name);
    const std::string pcm = fmt::format("fault_{}", fault.name);
    AlsaConfiguration::instance().addStereo(
        pcm, "S16_LE", fmt::format("clock 1 period 512 buffer 2048 {}", fault.script));
    Playing playing(kInt16);
    const AudioStatus status = playing.play(pcm);
    ASSERT_TRUE(status.ok()) << status.description();
    if (fault.isLost) {
      EXPECT_TRUE(eventually([&] { return playing.events.lost() > 0; }));
      const std::uint32_t calls = playing.renderer.calls;
      const auto before = std::chrono::steady_clock::now();
      playing.unit->stop();
      EXPECT_LT(std::chrono::steady_clock::now() - before, 2s);
      EXPECT_EQ(playing.unit->start().code, -ENODEV);
      EXPECT_EQ(playing.renderer.calls, calls);
    } else {
      ASSERT_TRUE(playing.renders(20'000));
      playing.unit->stop();
      // Nothing of what was rendered was dropped on the way.
      const std::vector<std::byte> bytes = AlsaConfiguration::instance().tapped(pcm);
      EXPECT_TRUE(expectedBytes(kInt16, PCMWord::int16, bytes.size()) == bytes);
    }
    EXPECT_GE(playing.unit->report().xruns, static_cast<std::uint64_t>(fault.xruns));
    playing.unit->uninitialize();
    EXPECT_EQ(playing.events.lost(), fault.isLost ? 1 : 0);
    EXPECT_EQ(playing.events.xruns() > 0, fault.xruns > 0);
  }
}

TEST(AlsaBackend, AStartThatFailsSaysSoInTime) {
  for (const auto& [name, script] : {std::pair{"start_dead", "clock 1 error EPIPE times -1"},
                                     {"start_gone", "clock 1 error ENODEV"}}) {
    SCOPED_TRACE(name);
    AlsaConfiguration::instance().addStereo(name, "S16_LE", script);
    Playing playing(kInt16);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(playing.play(name).code, -ENODEV);
    EXPECT_LT(std::chrono::steady_clock::now() - before, 3s);
    EXPECT_EQ(playing.unit->start().code, -ENODEV);
  }
}

// --- Cards ---

TEST(AlsaBackend, CardsComeAndGoAndKeepTheirIds) {
  AlsaConfiguration::instance().addStereo("card", "S32_LE");
  const test::TemporaryFolder dev;
  std::mutex mutex;
  std::vector<AlsaPcmAddress> cards;
  const auto plug = [&](std::vector<AlsaPcmAddress> now) {
    {
      std::lock_guard lock(mutex);
      cards = std::move(now);
    }
    std::ofstream(dev / "snd" / "controlC0") << "x";
    std::filesystem::remove(dev / "snd" / "controlC0");
  };
  const auto address = [](int card) {
    return AlsaPcmAddress{"card", "alsa:hw:D90,0", "D90", "Topping", TransportType::usb, card, 0};
  };
  AlsaAudioHardware hardware({[&] {
                                std::lock_guard lock(mutex);
                                return cards;
                              },
                              (dev / "snd").string(), true});
  SerialQueue queue("test");
  std::atomic<int> told = 0;
  const auto listener =
      hardware.addListener(AudioProperty::devices, kNoDevice, 0, queue, [&] { ++told; });
  EXPECT_TRUE(hardware.devices().empty());

  // The folder itself appears with the first card.
  std::filesystem::create_directory(dev / "snd");
  plug({address(1)});
  ASSERT_TRUE(eventually([&] { return told == 1; }));
  const std::vector<AudioDeviceID> ids = hardware.devices();
  ASSERT_EQ(ids.size(), 1u);
  EXPECT_EQ(hardware.defaultOutputDevice(), ids[0]);
  EXPECT_EQ(hardware.deviceName(ids[0]), "D90");
  EXPECT_EQ(hardware.manufacturer(ids[0]), "Topping");
  EXPECT_EQ(hardware.transportType(ids[0]), TransportType::usb);
  for (const char* uid :
       {"alsa:hw:D90,0", "alsa:hw:1,0", "alsa:hw:CARD=D90,DEV=0", "alsa:hw:D90"}) {
    EXPECT_EQ(hardware.deviceForUID(uid), ids[0]) << uid;
  }

  plug({});
  ASSERT_TRUE(eventually([&] { return told == 2; }));
  EXPECT_TRUE(hardware.devices().empty());
  EXPECT_EQ(hardware.defaultOutputDevice(), kNoDevice);
  EXPECT_FALSE(hardware.hasOutputStreams(ids[0]));

  plug({address(3)});
  ASSERT_TRUE(eventually([&] { return told == 3; }));
  EXPECT_EQ(hardware.devices(), ids);
  EXPECT_EQ(hardware.deviceForUID("alsa:hw:3,0"), ids[0]);
  EXPECT_EQ(hardware.deviceForUID("alsa:hw:D90,0"), ids[0]);
}

}  // namespace
}  // namespace velorin

#include <fmt/format.h>

#include <cstdio>

#include "Commands.h"
#include "Console.h"
#include "JsonOutput.h"
#include "SignalPathText.h"
#include "engine/devices/DACCapabilities.h"
#include "foundation/Text.h"
#include "platform/audio/AudioHardware.h"

namespace velorin {
namespace {

std::vector<JsonObject> formatsJson(const std::vector<PhysicalFormat>& formats) {
  std::vector<JsonObject> list;
  for (const PhysicalFormat& format : formats) {
    list.emplace_back()
        .add("bits", format.bits)
        .add("float", format.isFloat)
        .add("channels", format.channels);
  }
  return list;
}

JsonObject json(const AudioHardware& hardware, AudioDeviceID device, const DACCapabilities& can) {
  std::vector<JsonObject> rates;
  for (const RateRange& range : hardware.availableSampleRates(device)) {
    rates.emplace_back().add("minimum", range.minimum).add("maximum", range.maximum);
  }
  JsonObject object;
  object.add("uid", hardware.deviceUID(device))
      .add("name", can.name)
      .add("manufacturer", can.manufacturer)
      .add("transport", can.transportType)
      .add("default", device == hardware.defaultOutputDevice())
      .add("channels", hardware.outputChannels(device))
      .add("maxChannels", can.maxChannels)
      .add("sampleRate", can.currentSampleRate)
      .add("sampleRates", rates)
      .add("bits", can.currentBitDepth)
      .add("bitDepths", std::vector<double>(can.bitDepths.begin(), can.bitDepths.end()))
      .add("formats", formatsJson(hardware.physicalFormats(device)))
      .add("dsd", can.supportsDSD)
      .add("hardwareVolume", can.supportsHardwareVolume)
      .add("bufferFrames", can.bufferFrameSize)
      .add("bufferMinimum", can.bufferFrameRange.first)
      .add("bufferMaximum", can.bufferFrameRange.second);
  if (can.hogPID < 0) {
    object.addNull("exclusiveOwner");
  } else {
    object.add("exclusiveOwner", static_cast<std::int64_t>(can.hogPID));
  }
  return object;
}

std::string ratesText(const std::vector<RateRange>& ranges) {
  std::string text;
  for (const RateRange& range : ranges) {
    text += text.empty() ? "" : ", ";
    text += rateText(range.minimum);
    if (range.maximum != range.minimum) text += " to " + rateText(range.maximum);
  }
  return text.empty() ? "not known" : text;
}

std::string formatsText(const std::vector<PhysicalFormat>& formats) {
  std::string text;
  for (const PhysicalFormat& format : formats) {
    if (format.bits <= 1) continue;  // told as DSD
    text += fmt::format("{}{}-bit{}", text.empty() ? "" : ", ", format.bits,
                        format.isFloat ? " float" : "");
  }
  return text.empty() ? "not known" : text;
}

/// "48 kHz, 24-bit"; what the device does not tell is left out.
std::string nowText(const DACCapabilities& can) {
  std::string text = can.currentSampleRate > 0 ? rateText(can.currentSampleRate) : "";
  if (can.currentBitDepth > 0) {
    text += fmt::format("{}{}-bit", text.empty() ? "" : ", ", can.currentBitDepth);
  }
  return text.empty() ? "not known" : text;
}

std::string bufferText(const DACCapabilities& can) {
  const auto [least, most] = can.bufferFrameRange;
  const std::string range =
      least == most ? fmt::format("{}", least) : fmt::format("{} to {}", least, most);
  return can.bufferFrameSize == 0 ? range + " frames"
                                  : fmt::format("{} frames, {}", can.bufferFrameSize, range);
}

void print(const AudioHardware& hardware, AudioDeviceID device, const DACCapabilities& can) {
  const bool isDefault = device == hardware.defaultOutputDevice();
  const auto line = [](const char* name, const std::string& value) {
    fmt::print("  {:<9} {}\n", name, text::escapeForTerminal(value));
  };
  fmt::print("{}{}\n", text::escapeForTerminal(can.name), isDefault ? "  (default)" : "");
  line("UID", hardware.deviceUID(device));
  line("maker", can.manufacturer);
  line("attached", can.transportType);
  line("channels", std::to_string(hardware.outputChannels(device)));
  line("rates", ratesText(hardware.availableSampleRates(device)));
  line("formats", formatsText(hardware.physicalFormats(device)) + (can.supportsDSD ? ", DSD" : ""));
  line("now", nowText(can));
  line("buffer", bufferText(can));
  line("volume", can.supportsHardwareVolume ? "on the device" : "in software alone");
  if (can.hogPID >= 0) line("held by", fmt::format("process {}", can.hogPID));
}

}  // namespace

int runDevices(const DevicesOptions& options) {
  const AudioHardwareChoice made = createAudioHardware(options.audio);
  if (!made.notice.empty()) reportError(made.notice);
  if (!made.hardware) return kExitFailure;
  std::vector<JsonObject> objects;
  bool any = false;
  for (const AudioDeviceID device : made.hardware->devices()) {
    // One that goes meanwhile is no device any more.
    const auto can = deviceCapabilities(*made.hardware, device);
    if (!can) continue;
    any = true;
    if (options.json) {
      objects.push_back(json(*made.hardware, device, *can));
    } else {
      print(*made.hardware, device, *can);
    }
  }
  if (options.json) {
    fmt::print("{}\n", JsonObject::list(objects));
  } else if (!any) {
    fmt::print("no output devices\n");
  }
  return finishOutput();
}

}  // namespace velorin

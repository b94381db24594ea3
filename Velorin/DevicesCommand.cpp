#include <fmt/format.h>

#include <cstdio>

#include "Commands.h"
#include "Console.h"
#include "JsonOutput.h"
#include "SignalPathText.h"
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

JsonObject json(const AudioHardware& hardware, AudioDeviceID device) {
  std::vector<JsonObject> rates;
  for (const RateRange& range : hardware.availableSampleRates(device)) {
    rates.emplace_back().add("minimum", range.minimum).add("maximum", range.maximum);
  }
  JsonObject object;
  object.add("uid", hardware.deviceUID(device))
      .add("name", hardware.deviceName(device))
      .add("manufacturer", hardware.manufacturer(device))
      .add("transport", transportName(hardware.transportType(device)))
      .add("default", device == hardware.defaultOutputDevice())
      .add("channels", hardware.outputChannels(device))
      .add("sampleRate", hardware.nominalSampleRate(device))
      .add("sampleRates", rates)
      .add("formats", formatsJson(hardware.physicalFormats(device)));
  if (const auto buffer = hardware.bufferFrameSizeRange(device)) {
    object.add("bufferMinimum", buffer->minimum).add("bufferMaximum", buffer->maximum);
  }
  const pid_t owner = hardware.hogOwner(device);
  if (owner < 0) {
    object.addNull("exclusiveOwner");
  } else {
    object.add("exclusiveOwner", static_cast<std::int64_t>(owner));
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
    text += fmt::format("{}{}-bit{}", text.empty() ? "" : ", ", format.bits,
                        format.isFloat ? " float" : "");
  }
  return text.empty() ? "not known" : text;
}

void print(const AudioHardware& hardware, AudioDeviceID device) {
  const bool isDefault = device == hardware.defaultOutputDevice();
  fmt::print("{}{}\n", text::escapeForTerminal(hardware.deviceName(device)),
             isDefault ? "  (default)" : "");
  fmt::print("  UID       {}\n", text::escapeForTerminal(hardware.deviceUID(device)));
  fmt::print("  attached  {}\n", transportName(hardware.transportType(device)));
  fmt::print("  channels  {}\n", hardware.outputChannels(device));
  fmt::print("  rates     {}\n", ratesText(hardware.availableSampleRates(device)));
  fmt::print("  formats   {}\n", formatsText(hardware.physicalFormats(device)));
}

}  // namespace

int runDevices(const DevicesOptions& options) {
  const AudioHardwareChoice made = createAudioHardware(options.audio);
  if (!made.notice.empty()) reportError(made.notice);
  if (!made.hardware) return kExitFailure;
  std::vector<JsonObject> objects;
  bool any = false;
  for (const AudioDeviceID device : made.hardware->devices()) {
    if (!made.hardware->hasOutputStreams(device)) continue;
    any = true;
    if (options.json) {
      objects.push_back(json(*made.hardware, device));
    } else {
      print(*made.hardware, device);
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

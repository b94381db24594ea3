#include "platform/audio/alsa/AlsaCards.h"

#include <alsa/asoundlib.h>
#include <dirent.h>
#include <fmt/format.h>
#include <unistd.h>

#include <charconv>
#include <filesystem>
#include <fstream>

namespace velorin {
namespace {

namespace fs = std::filesystem;

struct CloseControl {
  void operator()(snd_ctl_t* control) const noexcept { snd_ctl_close(control); }
};
using Control = std::unique_ptr<snd_ctl_t, CloseControl>;

std::string firstLine(const fs::path& file) {
  std::ifstream in(file);
  std::string line;
  std::getline(in, line);
  return line;
}

std::string busOf(int card) {
  std::error_code error;
  const fs::path link = fmt::format("/sys/class/sound/card{}/device/subsystem", card);
  return fs::read_symlink(link, error).filename().string();
}

// A USB sound card's device node is an interface; the strings are one level up.
std::string manufacturerOf(int card) {
  std::error_code error;
  const fs::path device = fs::canonical(fmt::format("/sys/class/sound/card{}/device", card), error);
  return error ? std::string() : firstLine(device.parent_path() / "manufacturer");
}

// USB cards call every PCM "USB Audio", which says nothing beside the card's name.
std::string displayName(const std::string& card, const std::string& pcm) {
  if (pcm.empty() || pcm.starts_with("USB Audio") || pcm == card) return card;
  return fmt::format("{}: {}", card, pcm);
}

void addPlaybackDevices(snd_ctl_t* control, int card, std::vector<AlsaPcmAddress>& out) {
  snd_ctl_card_info_t* cardInfo;
  snd_ctl_card_info_alloca(&cardInfo);
  if (snd_ctl_card_info(control, cardInfo) < 0) return;
  const std::string cardID = snd_ctl_card_info_get_id(cardInfo);
  const std::string bus = busOf(card);
  const std::string manufacturer = manufacturerOf(card);
  snd_pcm_info_t* info;
  snd_pcm_info_alloca(&info);
  for (int device = -1; snd_ctl_pcm_next_device(control, &device) >= 0 && device >= 0;) {
    snd_pcm_info_set_device(info, static_cast<unsigned>(device));
    snd_pcm_info_set_subdevice(info, 0);
    snd_pcm_info_set_stream(info, SND_PCM_STREAM_PLAYBACK);
    if (snd_ctl_pcm_info(control, info) < 0) continue;  // capture only
    const std::string pcmName = snd_pcm_info_get_name(info);
    const auto transport = alsaTransport(snd_ctl_card_info_get_driver(cardInfo), pcmName, bus);
    // The volumes of a card are those of its analogue outputs.
    const bool hasMixer =
        transport != TransportType::hdmi && transport != TransportType::displayPort;
    out.push_back({.pcm = fmt::format("hw:{},{}", card, device),
                   .uid = fmt::format("alsa:hw:{},{}", cardID, device),
                   .name = displayName(snd_ctl_card_info_get_name(cardInfo), pcmName),
                   .manufacturer = manufacturer,
                   .transport = transport,
                   .card = card,
                   .device = device,
                   .control = hasMixer ? fmt::format("hw:{}", card) : std::string()});
  }
}

template <class Number>
bool parseNumber(std::string_view text, Number& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size();
}

std::string_view trimmed(std::string_view text) {
  while (text.starts_with(' ') || text.starts_with('\t')) text.remove_prefix(1);
  while (text.ends_with(' ') || text.ends_with('\t')) text.remove_suffix(1);
  return text;
}

// The value of the line "key: value"; spaces around both are the kernel's alignment.
std::string_view field(std::string_view text, std::string_view key) {
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    const std::size_t colon = line.find(':');
    if (colon != line.npos && trimmed(line.substr(0, colon)) == key) {
      return trimmed(line.substr(colon + 1));
    }
    text.remove_prefix(std::min(text.size(), line.size() + 1));
  }
  return {};
}

std::string wholeFile(const fs::path& file) {
  std::ifstream in(file);
  return {std::istreambuf_iterator<char>(in), {}};
}

bool hasOpen(const fs::path& process, const std::string& node) {
  std::error_code error;
  for (const auto& descriptor : fs::directory_iterator(process / "fd", error)) {
    std::error_code unreadable;
    if (fs::read_symlink(descriptor.path(), unreadable) == node) return true;
  }
  return false;
}

}  // namespace

std::vector<AlsaPcmAddress> alsaHardware() {
  std::vector<AlsaPcmAddress> all;
  for (int card = -1; snd_card_next(&card) >= 0 && card >= 0;) {
    snd_ctl_t* raw = nullptr;
    if (snd_ctl_open(&raw, fmt::format("hw:{}", card).c_str(), SND_CTL_NONBLOCK) < 0) continue;
    const Control control(raw);
    addPlaybackDevices(control.get(), card, all);
  }
  return all;
}

TransportType alsaTransport(std::string_view driver, std::string_view pcmName,
                            std::string_view bus) noexcept {
  const auto names = [&](std::string_view part) { return pcmName.find(part) != pcmName.npos; };
  if (bus == "usb" || driver.starts_with("USB")) return TransportType::usb;
  if (names("DisplayPort")) return TransportType::displayPort;
  if (names("HDMI") || driver.starts_with("vc4-hdmi")) return TransportType::hdmi;
  if (bus == "firewire") return TransportType::fireWire;
  if (driver == "Dummy" || driver == "Loopback") return TransportType::virtualDevice;
  // On-board codecs sit on the PCI bus too; what says "PCI" to a user is a card in a slot.
  if (driver.starts_with("HDA") || driver.starts_with("sof") || bus == "platform") {
    return TransportType::builtIn;
  }
  return bus == "pci" ? TransportType::pci : TransportType::unknown;
}

std::optional<HardwareName> parseHardwareName(std::string_view pcm) {
  if (!pcm.starts_with("hw:")) return std::nullopt;
  pcm.remove_prefix(3);
  const std::size_t comma = pcm.find(',');
  std::string_view card = pcm.substr(0, comma);
  std::string_view device = comma == pcm.npos ? "0" : pcm.substr(comma + 1);
  if (card.starts_with("CARD=")) card.remove_prefix(5);
  if (device.starts_with("DEV=")) device.remove_prefix(4);
  HardwareName name{std::string(card), 0};
  if (card.empty() || !parseNumber(device, name.device) || name.device < 0) return std::nullopt;
  return name;
}

pid_t alsaHolder(int card, int device) {
  const fs::path status = fmt::format("/proc/asound/card{}/pcm{}p/sub0/status", card, device);
  pid_t owner = 0;
  // Not field(wholeFile(…)): the view would outlive the text.
  const std::string text = wholeFile(status);
  if (parseNumber(field(text, "owner_pid"), owner) && owner > 0) {
    // The kernel notes the thread that opened; its process is what a user knows.
    const std::string thread = wholeFile(fmt::format("/proc/{}/status", owner));
    pid_t process = 0;
    return parseNumber(field(thread, "Tgid"), process) ? process : owner;
  }
  if (!text.empty()) return 0;  // "closed"
  const std::string node = fmt::format("/dev/snd/pcmC{}D{}p", card, device);
  std::error_code error;
  for (const auto& entry : fs::directory_iterator("/proc", error)) {
    pid_t process = 0;
    if (parseNumber(std::string_view(entry.path().filename().native()), process) &&
        hasOpen(entry.path(), node)) {
      return process;
    }
  }
  return 0;
}

std::string processDescription(pid_t process) {
  const std::string command = firstLine(fmt::format("/proc/{}/comm", process));
  return command.empty() ? fmt::format("process {}", process)
                         : fmt::format("{} (process {})", command, process);
}

std::optional<KernelParams> parseKernelParams(std::string_view text) {
  KernelParams params;
  params.format = field(text, "format");
  if (params.format.empty()) return std::nullopt;
  parseNumber(field(text, "channels"), params.channels);
  parseNumber(field(text, "period_size"), params.periodFrames);
  parseNumber(field(text, "buffer_size"), params.bufferFrames);
  const std::string_view rate = field(text, "rate");  // "44100 (44100/1)"
  const std::size_t bracket = rate.find('(');
  std::uint32_t whole = 0;
  if (parseNumber(rate.substr(0, rate.find(' ')), whole)) params.rate = whole;
  if (bracket != rate.npos && rate.ends_with(')')) {
    const std::string_view fraction = rate.substr(bracket + 1, rate.size() - bracket - 2);
    const std::size_t slash = fraction.find('/');
    double numerator = 0;
    double denominator = 0;
    if (slash != fraction.npos && parseNumber(fraction.substr(0, slash), numerator) &&
        parseNumber(fraction.substr(slash + 1), denominator) && denominator > 0) {
      params.rate = numerator / denominator;
    }
  }
  return params;
}

}  // namespace velorin

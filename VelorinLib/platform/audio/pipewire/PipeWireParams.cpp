#include "platform/audio/pipewire/PipeWireParams.h"

#include <spa/debug/types.h>
#include <spa/param/audio/format-utils.h>
#include <spa/param/audio/type-info.h>
#include <spa/param/format-utils.h>
#include <spa/param/latency-utils.h>
#include <spa/param/profile.h>
#include <spa/param/props.h>
#include <spa/param/route.h>
#include <spa/pod/builder.h>
#include <spa/pod/iter.h>

#include <algorithm>
#include <cmath>

namespace velorin {
namespace {

constexpr std::array<std::uint32_t, 17> kCommonRates = {
    8000,  11025, 16000,  22050,  24000,  32000,  44100,  48000, 64000,
    88200, 96000, 176400, 192000, 352800, 384000, 705600, 768000};

// The values of a property that may be a choice: for a range default, minimum, maximum, for a
// list the default and then all.
struct Choice {
  std::span<const std::uint32_t> values;
  std::uint32_t kind = SPA_CHOICE_None;

  std::span<const std::uint32_t> alternatives() const {
    return kind == SPA_CHOICE_Enum && values.size() > 1 ? values.subspan(1) : values;
  }
  bool isRange() const {
    return (kind == SPA_CHOICE_Range || kind == SPA_CHOICE_Step) && values.size() >= 3;
  }
};

Choice choiceOf(const spa_pod* param, std::uint32_t key, std::uint32_t type) {
  const spa_pod_prop* prop = spa_pod_find_prop(param, nullptr, key);
  if (!prop) return {};
  Choice choice;
  std::uint32_t count = 0;
  const spa_pod* values = spa_pod_get_values(&prop->value, &count, &choice.kind);
  if (!values || values->type != type || values->size != sizeof(std::uint32_t)) return {};
  choice.values = {static_cast<const std::uint32_t*>(SPA_POD_BODY_CONST(values)), count};
  return choice;
}

PhysicalFormat physicalOf(std::uint32_t format, std::uint32_t channels) {
  switch (format) {
    case SPA_AUDIO_FORMAT_S8:
    case SPA_AUDIO_FORMAT_U8:
    case SPA_AUDIO_FORMAT_S8P:
    case SPA_AUDIO_FORMAT_U8P:
      return {8, false, channels};
    case SPA_AUDIO_FORMAT_S16_LE:
    case SPA_AUDIO_FORMAT_S16_BE:
    case SPA_AUDIO_FORMAT_S16P:
      return {16, false, channels};
    case SPA_AUDIO_FORMAT_S24_LE:
    case SPA_AUDIO_FORMAT_S24_BE:
    case SPA_AUDIO_FORMAT_S24_32_LE:
    case SPA_AUDIO_FORMAT_S24_32_BE:
    case SPA_AUDIO_FORMAT_S24P:
    case SPA_AUDIO_FORMAT_S24_32P:
      return {24, false, channels};
    case SPA_AUDIO_FORMAT_S32_LE:
    case SPA_AUDIO_FORMAT_S32_BE:
    case SPA_AUDIO_FORMAT_S32P:
      return {32, false, channels};
    case SPA_AUDIO_FORMAT_F32_LE:
    case SPA_AUDIO_FORMAT_F32_BE:
    case SPA_AUDIO_FORMAT_F32P:
      return {32, true, channels};
    case SPA_AUDIO_FORMAT_F64_LE:
    case SPA_AUDIO_FORMAT_F64_BE:
    case SPA_AUDIO_FORMAT_F64P:
      return {64, true, channels};
    default:
      return {};
  }
}

void addFormat(PipeWireOffer& offer, PhysicalFormat format) {
  if (format.bits == 0) return;
  const auto same = std::ranges::find_if(offer.formats, [&](const PhysicalFormat& known) {
    return known.bits == format.bits && known.isFloat == format.isFloat;
  });
  if (same == offer.formats.end()) {
    offer.formats.push_back(format);
  } else {
    same->channels = std::max(same->channels, format.channels);
  }
}

void addRates(PipeWireOffer& offer, const Choice& rates) {
  if (rates.isRange()) {
    for (const std::uint32_t rate : kCommonRates) {
      if (rate >= rates.values[1] && rate <= rates.values[2]) offer.rates.push_back(rate);
    }
  } else {
    for (const std::uint32_t rate : rates.alternatives()) {
      if (rate > 0) offer.rates.push_back(rate);
    }
  }
  std::ranges::sort(offer.rates);
  offer.rates.erase(std::unique(offer.rates.begin(), offer.rates.end()), offer.rates.end());
}

std::uint32_t largest(const Choice& choice) {
  if (choice.isRange()) return std::min<std::uint32_t>(choice.values[2], kMaxChannels);
  std::uint32_t most = 0;
  for (const std::uint32_t value : choice.alternatives()) most = std::max(most, value);
  return std::min<std::uint32_t>(most, kMaxChannels);
}

std::vector<float> floats(const spa_pod* pod) {
  std::vector<float> values(SPA_AUDIO_MAX_CHANNELS);
  values.resize(spa_pod_copy_array(pod, SPA_TYPE_Float, values.data(),
                                   static_cast<std::uint32_t>(values.size())));
  return values;
}

const spa_pod* addGains(spa_pod_builder& builder, std::span<const float> channels) {
  spa_pod_frame frame{};
  spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_Props, SPA_PARAM_Props);
  spa_pod_builder_prop(&builder, SPA_PROP_channelVolumes, 0);
  spa_pod_builder_array(&builder, sizeof(float), SPA_TYPE_Float,
                        static_cast<std::uint32_t>(channels.size()), channels.data());
  return static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &frame));
}

bool allUnity(const std::vector<float>& gains) {
  return std::ranges::all_of(gains, [](float gain) { return gain == 1.0f; });
}

}  // namespace

bool PipeWireOffer::offers(double rate) const noexcept {
  return std::ranges::any_of(rates, [&](double offered) { return std::abs(offered - rate) < 1; });
}

bool PipeWireGains::isUnity(bool byHardware) const noexcept {
  if (muted || softMuted || master != 1.0f || !allUnity(soft)) return false;
  return byHardware || allUnity(channels);
}

void restrictOffer(PipeWireOffer& offer, const PipeWireOffer& sink) {
  for (const PhysicalFormat& format : sink.formats) addFormat(offer, format);
  std::vector<std::uint32_t> common;
  std::ranges::set_intersection(offer.rates, sink.rates, std::back_inserter(common));
  if (offer.rates.empty()) common = sink.rates;
  if (!common.empty()) offer.rates = std::move(common);
}

void addFormatOffer(const spa_pod* param, PipeWireOffer& offer) {
  std::uint32_t mediaType = 0;
  std::uint32_t subtype = 0;
  if (!param || spa_format_parse(param, &mediaType, &subtype) < 0) return;
  if (mediaType != SPA_MEDIA_TYPE_audio) return;
  const std::uint32_t channels = largest(choiceOf(param, SPA_FORMAT_AUDIO_channels, SPA_TYPE_Int));
  if (subtype == SPA_MEDIA_SUBTYPE_dsd) return addFormat(offer, {1, false, channels});
  if (subtype != SPA_MEDIA_SUBTYPE_raw) return;

  for (const std::uint32_t format :
       choiceOf(param, SPA_FORMAT_AUDIO_format, SPA_TYPE_Id).alternatives()) {
    addFormat(offer, physicalOf(format, channels));
  }
  addRates(offer, choiceOf(param, SPA_FORMAT_AUDIO_rate, SPA_TYPE_Int));
  if (channels <= offer.channels) return;
  offer.channels = channels;
  offer.positions.clear();
  if (const spa_pod_prop* prop = spa_pod_find_prop(param, nullptr, SPA_FORMAT_AUDIO_position)) {
    std::vector<std::uint32_t> positions(SPA_AUDIO_MAX_CHANNELS);
    positions.resize(spa_pod_copy_array(&prop->value, SPA_TYPE_Id, positions.data(),
                                        static_cast<std::uint32_t>(positions.size())));
    if (positions.size() == channels) offer.positions = std::move(positions);
  }
}

std::optional<PipeWireFormat> parseFormat(const spa_pod* param) {
  spa_audio_info_raw info{};
  if (!param || spa_format_audio_raw_parse(param, &info) < 0) return std::nullopt;
  const char* name = spa_debug_type_find_short_name(spa_type_audio_format, info.format);
  return PipeWireFormat{name ? name : "", physicalOf(info.format, info.channels), info.rate};
}

void updateGains(const spa_pod* param, PipeWireGains& gains) {
  if (!param || !spa_pod_is_object(param)) return;
  const auto* object = reinterpret_cast<const spa_pod_object*>(param);
  const spa_pod_prop* prop = nullptr;
  SPA_POD_OBJECT_FOREACH(object, prop) {
    switch (prop->key) {
      case SPA_PROP_channelVolumes:
        gains.channels = floats(&prop->value);
        break;
      case SPA_PROP_softVolumes:
        gains.soft = floats(&prop->value);
        break;
      case SPA_PROP_volume:
        spa_pod_get_float(&prop->value, &gains.master);
        break;
      case SPA_PROP_mute:
        spa_pod_get_bool(&prop->value, &gains.muted);
        break;
      case SPA_PROP_softMute:
        spa_pod_get_bool(&prop->value, &gains.softMuted);
        break;
      default:
        break;
    }
  }
}

const spa_pod* buildStreamFormat(PipeWirePodBuffer& buffer, const StreamFormat& format,
                                 std::span<const std::uint32_t> positions) {
  spa_audio_info_raw info{};
  info.format = format.isFloat()              ? SPA_AUDIO_FORMAT_F32P
                : format.bitsPerChannel == 16 ? SPA_AUDIO_FORMAT_S16P
                                              : SPA_AUDIO_FORMAT_S32P;
  info.rate = static_cast<std::uint32_t>(std::lround(format.sampleRate));
  info.channels = format.channelsPerFrame;
  std::ranges::copy(positions, info.position);
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, buffer.data(), static_cast<std::uint32_t>(buffer.size()));
  return spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &info);
}

const spa_pod* buildGains(PipeWirePodBuffer& buffer, std::span<const float> channels) {
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, buffer.data(), static_cast<std::uint32_t>(buffer.size()));
  return addGains(builder, channels);
}

const spa_pod* buildRouteGains(PipeWirePodBuffer& buffer, const PipeWireRoute& route,
                               std::span<const float> channels) {
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, buffer.data(), static_cast<std::uint32_t>(buffer.size()));
  spa_pod_frame frame{};
  spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_ParamRoute, SPA_PARAM_Route);
  spa_pod_builder_prop(&builder, SPA_PARAM_ROUTE_index, 0);
  spa_pod_builder_int(&builder, route.index);
  spa_pod_builder_prop(&builder, SPA_PARAM_ROUTE_device, 0);
  spa_pod_builder_int(&builder, route.device);
  spa_pod_builder_prop(&builder, SPA_PARAM_ROUTE_props, 0);
  addGains(builder, channels);
  spa_pod_builder_prop(&builder, SPA_PARAM_ROUTE_save, 0);
  spa_pod_builder_bool(&builder, true);
  return static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &frame));
}

std::optional<std::uint32_t> parseInputLatency(const spa_pod* param, double rate) {
  spa_latency_info info{};
  if (!param || spa_latency_parse(param, &info) < 0) return std::nullopt;
  if (info.direction != SPA_DIRECTION_INPUT) return std::nullopt;
  const double frames = info.max_rate + static_cast<double>(info.max_ns) * rate / 1e9;
  return static_cast<std::uint32_t>(std::clamp(frames, 0.0, 10.0 * std::max(rate, 0.0)));
}

std::optional<PipeWireRoute> parseRoute(const spa_pod* param) {
  if (!param || !spa_pod_is_object_type(param, SPA_TYPE_OBJECT_ParamRoute)) return std::nullopt;
  PipeWireRoute route;
  const auto number = [&](std::uint32_t key, auto& value) {
    const spa_pod_prop* prop = spa_pod_find_prop(param, nullptr, key);
    return prop && spa_pod_get_int(&prop->value, &value) >= 0;
  };
  if (!number(SPA_PARAM_ROUTE_index, route.index)) return std::nullopt;
  if (!number(SPA_PARAM_ROUTE_device, route.device)) return std::nullopt;
  std::uint32_t direction = SPA_DIRECTION_INPUT;
  if (const auto* prop = spa_pod_find_prop(param, nullptr, SPA_PARAM_ROUTE_direction)) {
    spa_pod_get_id(&prop->value, &direction);
  }
  route.isOutput = direction == SPA_DIRECTION_OUTPUT;
  // The card flags volumes that its own mixer does.
  if (const auto* prop = spa_pod_find_prop(param, nullptr, SPA_PARAM_ROUTE_props)) {
    const auto* volumes = spa_pod_find_prop(&prop->value, nullptr, SPA_PROP_channelVolumes);
    route.hasHardwareVolume = volumes && (volumes->flags & SPA_POD_PROP_FLAG_HARDWARE) != 0;
  }
  return route;
}

std::vector<std::uint32_t> usualPositions(std::uint32_t channels) {
  constexpr auto FL = SPA_AUDIO_CHANNEL_FL, FR = SPA_AUDIO_CHANNEL_FR, FC = SPA_AUDIO_CHANNEL_FC,
                 LFE = SPA_AUDIO_CHANNEL_LFE, RL = SPA_AUDIO_CHANNEL_RL, RR = SPA_AUDIO_CHANNEL_RR,
                 RC = SPA_AUDIO_CHANNEL_RC, SL = SPA_AUDIO_CHANNEL_SL, SR = SPA_AUDIO_CHANNEL_SR;
  switch (channels) {
    case 1:
      return {SPA_AUDIO_CHANNEL_MONO};
    case 2:
      return {FL, FR};
    case 3:
      return {FL, FR, FC};
    case 4:
      return {FL, FR, RL, RR};
    case 5:
      return {FL, FR, FC, RL, RR};
    case 6:
      return {FL, FR, FC, LFE, RL, RR};
    case 7:
      return {FL, FR, FC, LFE, RC, SL, SR};
    case 8:
      return {FL, FR, FC, LFE, RL, RR, SL, SR};
    default:
      break;
  }
  std::vector<std::uint32_t> numbered;
  for (std::uint32_t i = 0; i < channels; ++i) numbered.push_back(SPA_AUDIO_CHANNEL_AUX0 + i);
  return numbered;
}

}  // namespace velorin

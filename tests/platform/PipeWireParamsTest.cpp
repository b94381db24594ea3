// Parameter objects as cards send them, which the null sinks of the other tests do not.
#include "platform/audio/pipewire/PipeWireParams.h"

#include <gtest/gtest.h>
#include <spa/param/audio/format-utils.h>
#include <spa/param/latency-utils.h>
#include <spa/param/profile.h>
#include <spa/param/props.h>
#include <spa/param/route.h>
#include <spa/pod/builder.h>

namespace velorin {
namespace {

// A parameter under construction, and its memory.
struct Pod {
  alignas(8) std::byte bytes[2048];
  spa_pod_builder builder{};

  Pod() { spa_pod_builder_init(&builder, bytes, sizeof(bytes)); }

  const spa_pod* formats(std::vector<std::uint32_t> ids, const std::vector<std::int32_t>& rates,
                         std::uint32_t rateChoice, const std::vector<std::int32_t>& channels,
                         std::uint32_t channelChoice) {
    spa_pod_frame object;
    spa_pod_builder_push_object(&builder, &object, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
    spa_pod_builder_add(&builder, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_audio),
                        SPA_FORMAT_mediaSubtype, SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw), 0);
    spa_pod_builder_prop(&builder, SPA_FORMAT_AUDIO_format, 0);
    spa_pod_frame choice;
    spa_pod_builder_push_choice(&builder, &choice, SPA_CHOICE_Enum, 0);
    ids.insert(ids.begin(), ids.front());
    for (const std::uint32_t id : ids) spa_pod_builder_id(&builder, id);
    spa_pod_builder_pop(&builder, &choice);
    choiceOfInts(SPA_FORMAT_AUDIO_rate, rates, rateChoice);
    choiceOfInts(SPA_FORMAT_AUDIO_channels, channels, channelChoice);
    return static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &object));
  }

  void choiceOfInts(std::uint32_t key, const std::vector<std::int32_t>& values,
                    std::uint32_t kind) {
    spa_pod_builder_prop(&builder, key, 0);
    spa_pod_frame choice;
    if (kind != SPA_CHOICE_None) spa_pod_builder_push_choice(&builder, &choice, kind, 0);
    for (const std::int32_t value : values) spa_pod_builder_int(&builder, value);
    if (kind != SPA_CHOICE_None) spa_pod_builder_pop(&builder, &choice);
  }
};

TEST(PipeWireParams, FormatOffersOfACardAddUp) {
  PipeWireOffer offer;
  Pod first;
  addFormatOffer(
      first.formats({SPA_AUDIO_FORMAT_S32_LE, SPA_AUDIO_FORMAT_S24_32_LE, SPA_AUDIO_FORMAT_S16_LE},
                    {48000, 44100, 192000}, SPA_CHOICE_Range, {2, 1, 8}, SPA_CHOICE_Range),
      offer);
  EXPECT_EQ(offer.rates,
            (std::vector<std::uint32_t>{44100, 48000, 64000, 88200, 96000, 176400, 192000}));
  EXPECT_EQ(offer.formats,
            (std::vector<PhysicalFormat>{{32, false, 8}, {24, false, 8}, {16, false, 8}}));
  EXPECT_EQ(offer.channels, 8u);
  Pod second;
  addFormatOffer(second.formats({SPA_AUDIO_FORMAT_S16_BE, SPA_AUDIO_FORMAT_F32_LE},
                                {352800, 352800, 44100, -5}, SPA_CHOICE_Enum, {2}, SPA_CHOICE_None),
                 offer);
  EXPECT_TRUE(offer.offers(352800));
  EXPECT_FALSE(offer.offers(384000));
  EXPECT_EQ(offer.formats.back(), (PhysicalFormat{32, true, 2}));
  EXPECT_EQ(offer.formats.size(), 4u);
  EXPECT_EQ(offer.channels, 8u);
}

TEST(PipeWireParams, WhatIsNoOfferAddsNothing) {
  PipeWireOffer offer;
  addFormatOffer(nullptr, offer);
  PipeWirePodBuffer buffer;
  const float gains[] = {1.0f, 1.0f};
  const spa_pod* props = buildGains(buffer, gains);
  addFormatOffer(props, offer);
  EXPECT_TRUE(offer.rates.empty());
  EXPECT_TRUE(offer.formats.empty());
  EXPECT_FALSE(parseFormat(props));
  EXPECT_FALSE(parseFormat(nullptr));
  EXPECT_FALSE(parseRoute(props));
  EXPECT_FALSE(parseInputLatency(props, 48000));
}

TEST(PipeWireParams, TheVolumeOfACardGoesThroughItsRoute) {
  PipeWirePodBuffer buffer;
  const float gains[] = {0.5f, 0.25f};
  const PipeWireRoute wanted{3, 7, false, false};
  const spa_pod* param = buildRouteGains(buffer, wanted, gains);
  const auto parsed = parseRoute(param);
  ASSERT_TRUE(parsed);
  EXPECT_EQ(parsed->index, 3);
  EXPECT_EQ(parsed->device, 7);
  PipeWireGains read;
  updateGains(&spa_pod_find_prop(param, nullptr, SPA_PARAM_ROUTE_props)->value, read);
  EXPECT_EQ(read.channels, (std::vector<float>{0.5f, 0.25f}));
  EXPECT_FALSE(read.isUnity());
  EXPECT_TRUE(read.isUnity(true)) << "the card's mixer does it, the samples are left alone";
  read.softMuted = true;
  EXPECT_FALSE(read.isUnity(true));
}

TEST(PipeWireParams, LatencyCountsWhatTheQuantumDoesNot) {
  spa_latency_info info{};
  info.direction = SPA_DIRECTION_INPUT;
  info.max_quantum = 1;
  info.max_rate = 96;
  info.max_ns = 2'000'000;
  Pod pod;
  EXPECT_EQ(parseInputLatency(spa_latency_build(&pod.builder, SPA_PARAM_Latency, &info), 48000),
            192u);
  info.direction = SPA_DIRECTION_OUTPUT;
  Pod other;
  EXPECT_FALSE(
      parseInputLatency(spa_latency_build(&other.builder, SPA_PARAM_Latency, &info), 48000));
}

}  // namespace
}  // namespace velorin

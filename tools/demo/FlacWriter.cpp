#include "FlacWriter.h"

#include <FLAC/metadata.h>
#include <FLAC/stream_encoder.h>

#include <cstdio>
#include <memory>

namespace velorin::demo {
namespace {

struct DeleteEncoder {
  void operator()(FLAC__StreamEncoder* encoder) const { FLAC__stream_encoder_delete(encoder); }
};
struct DeleteMetadata {
  void operator()(FLAC__StreamMetadata* block) const { FLAC__metadata_object_delete(block); }
};

bool fail(const std::filesystem::path& path, const char* why) {
  std::fprintf(stderr, "velorin_demo_album: %s: %s\n", path.c_str(), why);
  return false;
}

bool addTag(FLAC__StreamMetadata* block, const std::string& name, const std::string& value) {
  FLAC__StreamMetadata_VorbisComment_Entry entry;
  return FLAC__metadata_object_vorbiscomment_entry_from_name_value_pair(&entry, name.c_str(),
                                                                        value.c_str()) &&
         FLAC__metadata_object_vorbiscomment_append_comment(block, entry, /*copy=*/false);
}

}  // namespace

bool writeFlac(const std::filesystem::path& path, const FlacSpec& spec,
               std::span<const std::int32_t> interleaved) {
  constexpr unsigned kChannels = 2;
  const std::unique_ptr<FLAC__StreamEncoder, DeleteEncoder> encoder(FLAC__stream_encoder_new());
  std::unique_ptr<FLAC__StreamMetadata, DeleteMetadata> comments(
      FLAC__metadata_object_new(FLAC__METADATA_TYPE_VORBIS_COMMENT));
  if (!encoder || !comments) return fail(path, "out of memory");
  for (const auto& [name, value] : spec.tags) {
    if (!addTag(comments.get(), name, value)) return fail(path, "a tag was refused");
  }
  FLAC__StreamMetadata* blocks[] = {comments.get()};
  FLAC__stream_encoder_set_channels(encoder.get(), kChannels);
  FLAC__stream_encoder_set_bits_per_sample(encoder.get(), spec.bitsPerSample);
  FLAC__stream_encoder_set_sample_rate(encoder.get(), spec.sampleRate);
  FLAC__stream_encoder_set_compression_level(encoder.get(), 3);
  FLAC__stream_encoder_set_total_samples_estimate(encoder.get(), interleaved.size() / kChannels);
  FLAC__stream_encoder_set_metadata(encoder.get(), blocks, 1);
  if (FLAC__stream_encoder_init_file(encoder.get(), path.c_str(), nullptr, nullptr) !=
      FLAC__STREAM_ENCODER_INIT_STATUS_OK) {
    return fail(path, "cannot be written");
  }
  const bool written = FLAC__stream_encoder_process_interleaved(
                           encoder.get(), interleaved.data(),
                           static_cast<unsigned>(interleaved.size() / kChannels)) != 0;
  const bool finished = FLAC__stream_encoder_finish(encoder.get()) != 0;
  return written && finished ? true : fail(path, "cannot be written; is the disk full?");
}

}  // namespace velorin::demo

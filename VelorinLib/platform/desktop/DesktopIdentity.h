// What the desktop knows this program by. The desktop entry file says the same.
#pragma once

#include <array>

namespace velorin {

inline constexpr const char* kApplicationName = "Velorin";
/// The desktop entry's file name without ".desktop", and the name of the icon.
inline constexpr const char* kDesktopEntry = "velorin";

/// Shared MIME-info names of the files that can be opened.
inline constexpr std::array kMusicMimeTypes{
    "audio/flac",     "audio/x-flac",     "audio/alac",         "audio/aiff",
    "audio/x-aiff",   "audio/wav",        "audio/x-wav",        "audio/mp4",
    "audio/x-m4a",    "audio/mpeg",       "audio/x-dsf",        "audio/x-dff",
    "audio/x-ape",    "audio/x-wavpack",  "audio/ogg",          "audio/opus",
    "audio/vorbis",   "audio/x-opus+ogg", "audio/x-vorbis+ogg", "audio/x-caf",
    "audio/aac",      "audio/ac3",        "audio/basic",        "audio/mp2",
    "audio/vnd.wave", "audio/webm",       "audio/x-matroska",   "audio/x-ms-wma",
    "audio/x-speex",  "audio/x-tta",      "audio/x-mpegurl",    "application/x-cue",
};

}  // namespace velorin

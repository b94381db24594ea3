// Options whose value is one of some names. For the files that hold the grammar alone: it brings
// the whole parser with it.
#pragma once

#include <CLI/CLI.hpp>
#include <map>
#include <string>

#include "platform/audio/AudioHardwareFactory.h"

namespace velorin {

/// Sets the field to the value of the name that is given; another name is wrong usage. The field
/// and the names outlive the parse. CLI11's own transformers list raw enumeration values in their
/// messages, which tell a user nothing.
template <class Field, class Value>
void addChoice(CLI::App* command, const char* option, Field& field,
               const std::map<std::string, Value>& names, const char* description) {
  command
      ->add_option_function<std::string>(
          option, [&field, &names](const std::string& name) { field = names.at(name); },
          description)
      ->check(CLI::Validator(
          [&names](std::string& name) -> std::string {
            if (names.contains(name)) return {};
            std::string known;
            for (const auto& [each, value] : names) known += (known.empty() ? "" : ", ") + each;
            return name + " is none of " + known;
          },
          ""))
      ->type_name("NAME");
}

/// --audio.
inline void addAudioOption(CLI::App* command, AudioBackendChoice& audio) {
  static const std::map<std::string, AudioBackendChoice> kNames = {
      {"auto", AudioBackendChoice::automatic},
      {"pipewire", AudioBackendChoice::pipewire},
      {"alsa", AudioBackendChoice::alsa},
      {"virtual", AudioBackendChoice::virtualNull}};
  addChoice(command, "--audio", audio, kNames, "Sound system: auto, pipewire, alsa or virtual");
}

}  // namespace velorin

// `velorin`, `velorin run`, `velorin open`, `velorin control` and `velorin path`.
#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>

#include "Commands.h"
#include "Console.h"
#include "LibraryText.h"
#include "foundation/Log.h"
#include "foundation/Paths.h"
#include "shell/InstanceSocket.h"
#include "shell/OpenFiles.h"
#include "shell/PathReport.h"
#include "shell/PlayerStatus.h"
#include "shell/VelorinApp.h"

namespace velorin {
namespace {

int print(const std::string& text) {
  if (!text.empty()) fmt::print("{}\n", text);
  return finishOutput();
}

int showAnswer(const InstanceAnswer& answer) {
  if (answer.ok) return print(answer.text);
  reportError(answer.text);
  return kExitFailure;
}

/// What is to be asked; nothing when files were given and none can be opened.
std::optional<InstanceRequest> requestOf(const RunOptions& options) {
  InstanceRequest request{options.action, {}};
  for (const auto& file : options.files) {
    if (const auto problem = problemWith(file)) {
      reportError(*problem);
    } else {
      request.paths.push_back(absolutePath(file));
    }
  }
  if (request.paths.empty() && !options.files.empty()) return std::nullopt;
  return request;
}

int become(const RunOptions& options, InstanceRequest request) {
  auto listener = instance::listen(paths::runtimeDirectory());
  if (const auto* failure = std::get_if<instance::Failure>(&listener)) {
    reportError(failure->text);
    return kExitFailure;
  }
  AudioHardwareChoice audio = createAudioHardware(options.audio);
  if (!audio.notice.empty()) reportError(audio.notice);
  if (!audio.hardware) return kExitFailure;
  VelorinApp app(std::move(audio.hardware));
  if (::isatty(STDOUT_FILENO)) {
    print(
        "Velorin runs without a window: 'velorin control' and media keys act on it, Ctrl-C ends "
        "it");
  }
  return app.run(std::move(std::get<FileDescriptor>(listener)), std::move(request));
}

}  // namespace

int runPlayer(const RunOptions& options) {
  // On a terminal what went wrong, in a journal or a file everything.
  const bool tellsAll = options.verbose || !::isatty(STDERR_FILENO);
  log::configure(tellsAll ? log::Level::info : log::Level::warning);
  auto request = requestOf(options);
  if (!request) return kExitFailure;
  auto claim = instance::becomeOrAsk(paths::runtimeDirectory(), *request);
  if (const auto* answer = std::get_if<InstanceAnswer>(&claim)) return showAnswer(*answer);
  if (const auto* failure = std::get_if<instance::Failure>(&claim)) {
    reportError(failure->text);
    return kExitFailure;
  }
  // The claim holds the lock to the end.
  return become(options, std::move(*request));
}

int runControl(const ControlOptions& options) {
  const auto reached =
      instance::ask(paths::runtimeDirectory(), {options.action, {}, options.words});
  if (const auto* failure = std::get_if<instance::Failure>(&reached)) {
    reportError(failure->text);
    return kExitFailure;
  }
  if (std::holds_alternative<instance::NoPlayer>(reached)) {
    reportError("no player is running: start it with 'velorin'");
    return kExitFailure;
  }
  const auto& answer = std::get<InstanceAnswer>(reached);
  if (!answer.ok || options.json) return showAnswer(answer);
  switch (options.action) {
    case InstanceAction::status:
      return print(statusText(answer.text).value_or(answer.text));
    case InstanceAction::path:
      return print(pathText(answer.text, outputColumns()).value_or(answer.text));
    default:
      return showAnswer(answer);
  }
}

}  // namespace velorin

#include "Commands.h"
#include "Console.h"
#include "ScanSession.h"

namespace velorin {

int runScan(const ScanOptions& options) {
  ScanSession session({.json = options.json, .verbose = options.verbose});
  try {
    LibraryServices services;
    if (services.manager().folders().getFolders().empty()) {
      reportError("no folder has been added yet: add one with 'velorin library add FOLDER'");
      return kExitFailure;
    }
    return session.run(services, [&](LibraryScanner& scanner) {
      if (options.full) {
        scanner.fullRescan();
      } else {
        scanner.rescan();
      }
    });
  } catch (const VelorinDatabaseError& error) {
    reportError(error.message);
    return kExitFailure;
  }
}

}  // namespace velorin

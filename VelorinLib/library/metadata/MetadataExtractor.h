// The extractor of the program: native header readers, tags, and hints from folder names.
#pragma once

#include "library/metadata/MetadataExtracting.h"

namespace velorin {

class MetadataExtractor : public MetadataExtracting {
 public:
  Result<ScannedItem, ExtractFailure> extract(const std::string& path,
                                              const std::vector<std::string>& watchedRoots,
                                              const ArtworkLookup& artwork) const override;
};

}  // namespace velorin

#pragma once

#include "io/HitReader.h"

#include <memory>
#include <string>

namespace kelvo {

/// Opens the TTree or RNTuple of hits in a ROOT file; HitReader describes the format.
/// @throw FileError for a file without such a table, or one that lacks a column
std::unique_ptr<HitSource> OpenRootHits(const std::string& file, const HitReaderOptions& options);

} // namespace kelvo

#pragma once

#include "geo/GeometryBase.h"
#include "track/TrackFit.h"

#include <ROOT/RDF/RInterface.hxx>

#include <map>
#include <memory>
#include <string>

namespace kelvo {

/// Adds the fits of its tracks to a data frame whose entries are tracks.
///
///     ROOT::EnableImplicitMT();
///     ROOT::RDataFrame tracks("hits", "hits.root");
///     auto detector = std::make_shared<geo::PlaneDetector>(
///         geo::PlaneDetector::FromFile("detectors/fine.toml"));
///     auto momentum = kelvo::DefineFit(tracks, detector).Histo1D("fit_p");
///
/// Hits are read from columns of vectors, one number per hit: view, u, z, sigu, or x, y, z, sigx,
/// sigy for planes that measure both coordinates, and sigz, t, sigt, w where they are; HitReader
/// tells what they mean. They are ROOT::RVec, std::vector or C arrays of any type of number; view
/// may also hold texts. An entry is fitted once, when the first of the new columns is needed, by
/// the fitter of the slot that works on it: any number of threads gives the same bits.
///
/// The new columns have the names and the meaning of those in a file of fits (docs/files.md),
/// except for track:
///
/// - fit_p, fit_status, fit_pull, ... of the best hypothesis, the first one where there is none;
/// - fit_each_p, fit_each_status, ... of all hypotheses, in the order of the options: a vector for
///   each column of one number.
///
/// A track that cannot be fitted has a status and a message, as in a file of fits. Offsets of
/// planes are added to the hits.
///
/// @param tracks   several threads: EnableImplicitMT() comes before this frame is made
/// @param detector shared by all threads; kept as long as the frames that are made from the result
/// @param columns  columns of other names: from our name, such as "sigu", to the one in the frame
/// @param prefix   of the new names; another one for a second fit in the same frame
/// @throw std::invalid_argument for missing columns and for columns that are no vectors of numbers,
///        for options out of range, for a null detector, and for a geo::PlaneDetector with an
///        unknown material where particles are to stop
ROOT::RDF::RNode DefineFit(ROOT::RDF::RNode tracks,
                           const std::shared_ptr<const geo::GeometryBase>& detector,
                           const TrackFitOptions& options = {},
                           const std::map<std::string, std::string>& columns = {},
                           const std::string& prefix = "fit_");

} // namespace kelvo

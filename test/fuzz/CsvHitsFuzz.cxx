// A table of hits of any content is read or refused with a FileError. Printed and read again, what
// was read without a problem is the same; compressed, all is.
#include "io/CsvHits.h"
#include "io/FileError.h"
#include "io/HitReader.h"
#include "test/fuzz/FuzzFile.h"
#include "test/fuzz/FuzzInput.h"
#include "util/Text.h"

#include <vector>

namespace {

using Tracks = std::vector<kelvo::TrackHits>;

const geo::PlaneDetector& Fine() {
  static const auto fine = geo::PlaneDetector::FromFile(KELVO_SOURCE_DIR "/detectors/fine.toml");
  return fine;
}

/// @return how it ended; empty: well
std::string Read(const std::string& content, const kelvo::HitReaderOptions& conventions,
                 Tracks& tracks) {
  const fuzz::File file(content);
  try {
    kelvo::CsvHits hits(file.Bytes(), conventions);
    for (kelvo::TrackHits track; hits.Next(track);) tracks.push_back(track);
  } catch (const kelvo::FileError& e) {
    const std::string message = e.what();
    return message.substr(std::min(message.find_first_of(",:"), message.size()));
  }
  return "";
}

bool AreSame(const kelvo::Hit3D& a, const kelvo::Hit3D& b) {
  return a.fView == b.fView && a.fX == b.fX && a.fY == b.fY && a.fZ == b.fZ && a.fT == b.fT &&
         a.fSigX == b.fSigX && a.fSigY == b.fSigY && a.fSigZ == b.fSigZ && a.fSigT == b.fSigT &&
         a.fW == b.fW;
}

bool AreSame(const Tracks& a, const Tracks& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& t, const auto& u) {
    return t.fTrack == u.fTrack && t.fBadLines == u.fBadLines && t.fCharges == u.fCharges &&
           std::equal(t.fHits.begin(), t.fHits.end(), u.fHits.begin(), u.fHits.end(),
                      [](const auto& h, const auto& i) { return AreSame(h, i); });
  });
}

std::string Printed(const Tracks& tracks) {
  std::string text = "track,view,u,sigu,z,sigz,t,sigt,w\n";
  for (const kelvo::TrackHits& track : tracks)
    for (const kelvo::Hit3D& h : track.fHits) {
      const bool isX = h.fView == geo::kX;
      text += std::to_string(track.fTrack) + (isX ? ",X" : ",Y");
      for (const double value :
           {isX ? h.fX : h.fY, isX ? h.fSigX : h.fSigY, h.fZ, h.fSigZ, h.fT, h.fSigT, h.fW}) {
        text += ',';
        kelvo::AppendNumber(text, value);
      }
      text += '\n';
    }
  return text;
}

kelvo::HitReaderOptions Conventions(unsigned choice) {
  kelvo::HitReaderOptions conventions;
  conventions.fUnit = std::array{"cm", "mm", "m", "um"}[choice % 4];
  if (choice & 4) conventions.fPlanes = &Fine();
  if (choice & 8) conventions.fSigma = 0.5;
  if (choice & 16) conventions.fColumns = {{"u", "x"}, {"track", "event"}};
  return conventions;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Values values(data, size);
  const kelvo::HitReaderOptions conventions = Conventions(values.Byte());
  const std::string text = values.Rest();
  Tracks tracks;
  const std::string ending = Read(text, conventions, tracks);
  if (text.compare(0, 2, "\x1F\x8B") != 0) {
    Tracks unpacked;
    fuzz::Expect(Read(fuzz::Gzip(text), conventions, unpacked) == ending, "the compressed ending");
    fuzz::Expect(AreSame(unpacked, tracks), "the compressed tracks");
  }
  const auto isOfNoUse = [](const auto& track) { return !track.Good() || track.fHits.empty(); };
  tracks.erase(std::remove_if(tracks.begin(), tracks.end(), isOfNoUse), tracks.end());
  for (kelvo::TrackHits& track : tracks) track.fCharges.clear();
  if (tracks.empty()) return 0;
  Tracks again;
  fuzz::Expect(Read(Printed(tracks), {}, again).empty(), "the printed table can be read");
  fuzz::Expect(AreSame(again, tracks), "the printed tracks");
  return 0;
}

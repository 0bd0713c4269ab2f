#pragma once

#include "io/PendingFile.h"

#include <TFile.h>

#include <map>
#include <memory>
#include <string>

namespace kelvo {

/// Makes sure that there is room for ROOT's interpreter, which starts with the first table or
/// thread and ends a process that has too little.
/// @throw FileError where the address space of the process is limited to less
void CheckRoomForRoot();

/// A file that is open to be read, under a path without anything that ROOT takes apart, as it does
/// names with '#', '?', '|' or '$', blanks in front, or what looks like a protocol.
class OpenPath {
public:
  /// @param name used as the file system has it
  /// @throw FileError where the file cannot be opened
  explicit OpenPath(const std::string& name);
  ~OpenPath();
  OpenPath(const OpenPath&) = delete;
  OpenPath& operator=(const OpenPath&) = delete;

  /// Returns the path, which is good as long as this object lives.
  std::string Path() const;

private:
  int fDescriptor;
};

/// Opens a ROOT file to read, literally of this name. Give what is returned to others, not the
/// name: RNTupleReader::Open(*file->Get<ROOT::RNTuple>("hits")).
/// @throw FileError where the file cannot be opened, is none of ROOT or was never closed
std::unique_ptr<TFile> OpenRootFile(const std::string& name);

/// A ROOT file to be written, literally under the name of a pending file.
///
/// An error of the disk does not reach ROOT, which is not made to go on after one and may end the
/// process: what is written is lost from there on, and Check() and Close() throw.
class RootOutput {
public:
  /// @param file     is filled and left to the caller to commit
  /// @param settings compression, as TFile has it
  /// @throw FileError, as all functions
  explicit RootOutput(const PendingFile& file, int settings = 101);
  ~RootOutput();
  RootOutput(const RootOutput&) = delete;
  RootOutput& operator=(const RootOutput&) = delete;

  /// Returns where tables are put.
  TFile& File();

  /// Throws if the disk has not taken all that was written up to here.
  void Check() const;

  /// Keeps texts as TObjString, by their names, and completes the file.
  void Close(const std::map<std::string, std::string>& texts);

private:
  class Descriptor;
  std::string fName;
  std::unique_ptr<Descriptor> fFile;
};

} // namespace kelvo

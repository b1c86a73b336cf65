// The library's way to the disk: an open file of ours.
#pragma once

#include "datafile/hdf5calls.h"

namespace datafile {

/// An open file, and the first error met in writing it.
///
/// Once a write failed, later ones are accepted and lost: the library cannot close a file it
/// cannot write, so whoever made the file looks at the error here.
struct DiskFile {
  int descriptor = -1;
  int errorNumber = 0;
};

/// Properties for H5Fcreate and H5Fopen with which the library reads and writes that file,
/// whatever name it is given. The file must live until the library has closed it.
Handle accessThrough(DiskFile& file);

}  // namespace datafile

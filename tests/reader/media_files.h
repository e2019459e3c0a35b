/// @file media_files.h
/// The media files on disk that the tests read.
#ifndef K7M_TESTS_READER_MEDIA_FILES_H
#define K7M_TESTS_READER_MEDIA_FILES_H

#include <string>
#include <vector>

#include "support/bytes.h"

namespace k7mtest {

/// The files of tests/data, in the order of their names.
std::vector<std::string> DataFiles();
/// The files of the folder of foreign media beside the repository; none when it does not exist.
std::vector<std::string> ForeignFiles();
/// Where that folder is looked for, and whether it is there.
std::string ForeignFolder();
bool HasForeignFolder();
/// The last part of a path with the folder that it stands in.
std::string ShortName(const std::string& path);

Bytes ReadFile(const std::string& path);

}  // namespace k7mtest

#endif

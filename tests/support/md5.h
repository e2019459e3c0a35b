/// @file md5.h
/// MD5 (RFC 1321), to compare bytes with what other programs print about them.
#ifndef K7M_TESTS_SUPPORT_MD5_H
#define K7M_TESTS_SUPPORT_MD5_H

#include <string>

#include "bytes.h"

namespace k7mtest {

/// 32 lower-case hexadecimal digits.
std::string Md5(const Bytes& bytes);

}  // namespace k7mtest

#endif

/// @file verify_report.h
/// Findings for people and for programs.
#pragma once

#include <string>

#include "json_text.h"
#include "verify_findings.h"

namespace qiro::k7m::tool {

std::string VerifyText(const Findings& findings);
Json VerifyJson(const std::string& path, const Findings& findings);

}  // namespace qiro::k7m::tool

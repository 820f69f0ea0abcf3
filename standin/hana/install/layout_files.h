#pragma once

#include <string>

#include "base/layout.h"

namespace standin {

/// Lays out the files and folders of an installation; `tools` is the folder of the built programs.
bool lay_out(const Layout& layout, const std::string& tools);

}  // namespace standin

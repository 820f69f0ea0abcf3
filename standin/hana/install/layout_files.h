#pragma once

#include <string>

#include "base/layout.h"

namespace standin {

/// Lays out the files and folders of an installation; `tools` is the folder of the built programs.
bool lay_out(const Layout& layout, const std::string& tools);
/// The same for a further host of `first`'s system: configuration, list of databases and profiles are links to those
/// of `first` and stay as they are.
bool lay_out_further_host(const Layout& first, const Layout& layout, const std::string& tools);

}  // namespace standin

// The shared main of the ferncast programs.
//
// `ferncast` carries the areas that need only the text, markup, URL and helper-client libraries;
// the areas that need the imaging, PDF, movie, importer or document libraries live in tools/media/
// and build into `ferncast-media`, which `ferncast` executes for them. So a text command does not
// pay for loading those libraries at start-up, and the user still sees one command.
#pragma once

#include <array>
#include <span>

namespace ferncast::cli {

struct AreaName {
  const char* name;
  const char* description;
};

// The areas of ferncast-media, as `std::array{AreaName{"image", "..."}, ...}`. Keep in step with
// the RegisterArea lines of tools/media/: ferncast-media refuses to run when the two disagree.
inline constexpr std::array kMediaAreas{
    AreaName{"image", "image thumbnails, facts, renderings and PDF data"},
    AreaName{"pdf", "facts and text of PDF documents"},
    AreaName{"document", "documents read by the text system's reader"},
};

// Parses the command line against the registered areas and runs the chosen command. `elsewhere`
// names areas that another program serves: they are listed in the help, nothing more.
int runFerncast(int argc, char** argv, std::span<const AreaName> elsewhere);

}  // namespace ferncast::cli

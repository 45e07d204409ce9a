// Where the platform keeps programs and a user's data. Directories end in "/". Any thread.
#pragma once

#include <string>

namespace zepho {

// The path of the running program, empty where the system does not tell.
std::string executablePath();
// The directory beside which a portable data directory lies; empty where it is not known.
std::string programDirectory();
// Where an installed package keeps the engine that came with it; empty where it is not known.
std::string packagedEngineDirectory();
// The path of a program of ours that others of ours start: beside this one in a build tree, below
// lib/ in an installed package.
std::string helperProgram(const std::string& name);
// The user's home directory, empty where none is known.
std::string homeDirectory();
// The directory for data of the user's programs.
std::string userDataDirectory();

}  // namespace zepho

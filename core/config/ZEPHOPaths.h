// The data root and every directory and well-known file below it.
//
// The root is decided once per process, on first use, and always ends in "/"; so does every
// directory. Any thread. See docs/data.md for the layout.
#pragma once

#include <optional>
#include <string>

namespace zepho::ZEPHOPaths {

// ZEPHO_HOME if it is set; else a portable directory beside the program, if it is there; else the
// user's data directory. It need not exist.
const std::string& dataRoot();

std::string dataDir();    // configuration and voice list
std::string voicesDir();  // reference clips of the voices
std::string cacheDir();   // finished clips
std::string modelsDir();  // models and tokenizer
std::string engineDir();  // a user-installed inference program
std::string logsDir();
std::string configFile();
std::string voicesFile();
std::string engineLog();  // output of the inference process
std::string enginePidFile();

// Creates all directories. A failure is ignored here: it shows as failures of the stores.
void ensureDirectories();

// Where a portable data directory would be; absent where the program's own place is unknown.
std::optional<std::string> portableCandidate();

// Where the engine that came with the program lies: the packaged one if it holds "s2", else
// ZEPHO_ENGINE_DIR untested.
std::optional<std::string> bundledEngineDir();

}  // namespace zepho::ZEPHOPaths

// Constants that the whole program shares.
#pragma once

namespace ZEPHO {

inline constexpr float speedMin = 0.5F;  // lowest speed factor
inline constexpr float speedMax = 2.0F;  // highest speed factor
inline constexpr int defaultSampleRate = 44100;
inline constexpr int defaultHttpPort = 17150;

inline constexpr int s2DefMaxTokens = 1024;
inline constexpr float s2DefTemperature = 0.58F;
inline constexpr float s2DefTopP = 0.8F;
inline constexpr int s2DefTopK = 40;
inline constexpr float s2DefRepPenalty = 1.1F;

inline constexpr const char* version = "0.3.26220";
inline constexpr const char* buildTime = "2026-08-07 07:34";

}  // namespace ZEPHO

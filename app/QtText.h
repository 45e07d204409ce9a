// Between the core's UTF-8 texts and Qt's.
#pragma once

#include <QString>
#include <string>
#include <string_view>

#include "core/diag/Language.h"

namespace zepho {

inline QString toQt(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}
inline std::string fromQt(const QString& text) {
    return text.toStdString();
}

// The text of this key in the interface language.
inline QString qT(std::string_view key) {
    return toQt(T(key));
}
template <class... Args>
QString qTF(std::string_view key, const Args&... arguments) {
    return toQt(TF(key, arguments...));
}

// As a tool tip that shows the text as it stands. Qt takes a text that looks like markup for markup, and
// names and notes come from other people's packs.
inline QString asTip(const QString& text) {
    if (text.isEmpty()) return {};
    return "<p style=\"white-space:pre-wrap\">" + text.toHtmlEscaped();
}

}  // namespace zepho

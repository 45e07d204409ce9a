// The last line of every sheet: what it has to tell, the way back, and the one thing it is for.
#pragma once

class QDialog;
class QPushButton;
class QString;
class QVBoxLayout;
class QWidget;

namespace zepho {

// Adds the line to the sheet's column and returns the button of this text, the default one, for the
// caller to connect. "Cancel" rejects the sheet. `told`, if any, stands at the left.
QPushButton* addSheetButtons(QDialog* sheet, QVBoxLayout* to, const QString& text,
                             QWidget* told = nullptr);

}  // namespace zepho

// A window with voices: clip files to choose, the clip text sheet, rows of the tables.
#pragma once

#include <QComboBox>
#include <QLabel>
#include <QPlainTextEdit>

#include "app/pages/ClipTextSheet.h"
#include "app/widgets/RecordModel.h"
#include "app/widgets/RecordTable.h"
#include "core/audio/PcmBuffer.h"
#include "core/platform/Files.h"
#include "tests/app/WindowFixture.h"
#include "tests/support/ScriptedEngine.h"
#include "tests/support/TempDir.h"

namespace zepho::test {

class VoicePagesFixture : public WindowFixture {
protected:
    // These pages need no listener, and so no port that another program may have.
    void configure(AppConfig& config) override { config.autoStartServer = false; }
    // A tone of this length in a new WAV file.
    QString clipFile(const std::string& name, int ms) {
        const std::string path = files.file(name);
        saveFileBytes(path, buildWav(toneOf(ms, 0.5F), 1));
        return toQt(path);
    }
    static ClipTextSheet* sheet() {
        for (QWidget* top : QApplication::topLevelWidgets())
            if (top->objectName() == "clipTextSheet" && top->isVisible())
                return dynamic_cast<ClipTextSheet*>(top);
        return nullptr;
    }
    // Waits for the sheet and types these transcripts.
    static void typeTexts(const QStringList& texts) {
        ASSERT_TRUE(eventually([] { return sheet() != nullptr; }));
        const auto fields = sheet()->findChildren<QPlainTextEdit*>("transcript");
        ASSERT_EQ(fields.size(), texts.size());
        for (qsizetype i = 0; i < texts.size(); ++i) QTest::keyClicks(fields[i], texts[i]);
    }
    template <class Control>
    static Control* control(QWidget& in, const QString& name) {
        return in.findChild<Control*>(name);
    }
    static void type(QWidget& in, const QString& name, const QString& text) {
        auto* const field = control<QLineEdit>(in, name);
        ASSERT_NE(field, nullptr) << fromQt(name);
        field->selectAll();
        QTest::keyClicks(field, text.isEmpty() ? " " : text);
    }
    static void typeLanguage(QWidget& in, const QString& code) {
        control<QComboBox>(in, "language")->setEditText(code);
    }
    static void pickText(QWidget& in, const QString& name, const QString& text) {
        auto* const box = control<QComboBox>(in, name);
        ASSERT_GE(box->findText(text, Qt::MatchStartsWith), 0) << fromQt(text);
        box->setCurrentIndex(box->findText(text, Qt::MatchStartsWith));
    }
    static QString cell(QWidget& in, const QString& table, int row, int column) {
        const QAbstractItemModel* model = control<QTableView>(in, table)->model();
        return model->index(row, column).data().toString();
    }
    static int rowsOf(QWidget& in, const QString& table) {
        return control<QTableView>(in, table)->model()->rowCount();
    }
    static std::string status(QWidget& in) { return fromQt(control<QLabel>(in, "status")->text()); }
    // A voice straight into the library, where a test is about something else.
    std::string addVoice(const std::string& display) {
        VoiceCloneSpec spec;
        spec.display = display;
        spec.language = "ja";
        spec.clips.push_back({buildWav(toneOf(1200, 0.5F), 1), "hello " + display});
        const std::string id = state->service->voices.addClone(spec).id;
        state->reloadVoices();
        return id;
    }

    TempDir files;
};

}  // namespace zepho::test

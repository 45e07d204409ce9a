#include "app/pages/AdvancedSettings.h"

#include <QCheckBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QVBoxLayout>
#include <cmath>

#include "app/QtText.h"

namespace zepho {
namespace {

constexpr std::int64_t highestPort = 65535;
constexpr int numberLetters = 16;
// In the order of the picker.
constexpr std::array speedModes{TtsSpeedMode::localStretch, TtsSpeedMode::localResample,
                                TtsSpeedMode::engine};

std::optional<std::int64_t> parseNumber(const QString& text) {
    bool ok = false;
    const qlonglong number = text.trimmed().toLongLong(&ok);
    return ok ? std::optional<std::int64_t>(number) : std::nullopt;
}

std::optional<float> parseDecimal(const QString& text) {
    bool ok = false;
    const float number = text.trimmed().toFloat(&ok);
    return ok && std::isfinite(number) ? std::optional<float>(number) : std::nullopt;
}

constexpr auto shownText = "shownText";

void showStored(QLineEdit* edit, const QString& text) {
    edit->setText(text);
    edit->setProperty(shownText, text);
}

// A field shows two decimals of what may be stored with four: one that nobody changed keeps them. Not
// isModified(), which knows of keys only, and not of those who write by other means.
bool isTouched(const QLineEdit* edit) {
    return edit->text() != edit->property(shownText).toString();
}

}  // namespace

AdvancedSettings::AdvancedSettings(AppState& state, QWidget* parent) : FormPage(state, parent) {
    QVBoxLayout* const layout = blockColumn();
    addHint(layout, "下面这些不改也能用。改错了可以点「恢复默认」。");
    addService(layout);
    addSynthesis(layout);
    addEngine(layout);
}

void AdvancedSettings::addService(QVBoxLayout* to) {
    addTitle(to, "— 服务 —");
    QFormLayout* const form = addForm(to);
    portEdit = numberEdit(form, "端口", "port");
    fields.push_back({[this](const AppConfig& config, const EngineOptions&) {
                          portEdit->setText(QString::number(config.port.get()));
                      },
                      [](AppConfig&, EngineOptions&) {}});
    auto* bind = numberEdit(form, "绑定地址", "bind", "0.0.0.0 / 127.0.0.1");
    fields.push_back(
        {[bind](const AppConfig& config, const EngineOptions&) {
             bind->setText(toQt(config.bindAddress.get()));
         },
         [bind](AppConfig& config, EngineOptions&) { config.bindAddress = fromQt(bind->text()); }});
    addNumber(form, "每 IP 每分钟", "rateLimit", &AppConfig::rateLimitPerMinute);
}

void AdvancedSettings::addSynthesis(QVBoxLayout* to) {
    addTitle(to, "— 合成 —");
    QFormLayout* const form = addForm(to);
    addNumber(form, "文本上限", "maxText", &AppConfig::maxTextLength);
    addNumber(form, "队列上限", "queueLimit", &AppConfig::queueLimit);
    addNumber(form, "超时(毫秒)", "timeoutMs", &AppConfig::requestTimeoutMs);
    ChoiceBox* const speed = addChoice(form, "调速方式", "speedMode", [] {
        QStringList items;
        for (const TtsSpeedMode mode : speedModes) items << toQt(ttsSpeedModeDisplay(mode));
        return items;
    });
    fields.push_back({[speed](const AppConfig& config, const EngineOptions&) {
                          for (std::size_t i = 0; i < speedModes.size(); ++i)
                              if (speedModes[i] == config.speedMode)
                                  speed->setCurrentIndex(static_cast<int>(i));
                      },
                      [speed](AppConfig& config, EngineOptions&) {
                          config.speedMode =
                              speedModes.at(static_cast<std::size_t>(speed->currentIndex()));
                      }});
    addFlag(form, "启用结果缓存", "cacheEnabled", &AppConfig::cacheEnabled);
    addFlag(form, "缺音色时自动生成默认音色", "autoDefaultVoice",
            &AppConfig::autoCreateDefaultVoice);
    addFlag(form, "输出峰值归一", "normalizeOutput", &AppConfig::normalizeOutput);
}

void AdvancedSettings::addEngine(QVBoxLayout* to) {
    addTitle(to, "— 引擎(本地 Fish S2 Pro)—");
    QFormLayout* const form = addForm(to);
    addNumber(form, "GPU 层数", "gpuLayers", &EngineOptions::gpuLayers,
              "-1 = 全上 GPU,0 = 全在 CPU");
    addNumber(form, "线程数", "threads", &EngineOptions::threads);
    addNumber(form, "最大 token", "maxTokens", &EngineOptions::maxNewTokens);
    addDecimal(form, "temperature", "temperature", &EngineOptions::temperature);
    addDecimal(form, "top P", "topP", &EngineOptions::topP);
    addNumber(form, "top K", "topK", &EngineOptions::topK);
    addDecimal(form, "repetition penalty", "repetitionPenalty", &EngineOptions::repetitionPenalty);
    QLineEdit* const extra = addEdit(form, "额外参数", "extraArgs");
    hint(extra, "透传给 s2.exe,例如 --n-gpu-layers 99");
    fields.push_back(
        {[extra](const AppConfig&, const EngineOptions& engine) {
             extra->setText(toQt(engine.extraArgs));
         },
         [extra](AppConfig&, EngineOptions& engine) { engine.extraArgs = fromQt(extra->text()); }});
}

QLineEdit* AdvancedSettings::numberEdit(QFormLayout* form, std::string_view key,
                                        const char* objectName, std::string_view note) {
    auto* row = new QWidget(this);
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* edit = new QLineEdit(row);
    edit->setObjectName(objectName);
    edit->setFixedWidth(fontMetrics().horizontalAdvance('0') * numberLetters);
    layout->addWidget(edit);
    QLabel* const beside = dimLabel();
    if (!note.empty()) say(beside, note);
    layout->addWidget(beside, 1);
    addField(form, key, row, edit);
    return edit;
}

void AdvancedSettings::addNumber(QFormLayout* form, std::string_view key, const char* objectName,
                                 Setting<std::int64_t> AppConfig::*field) {
    QLineEdit* const edit = numberEdit(form, key, objectName);
    fields.push_back({[edit, field](const AppConfig& config, const EngineOptions&) {
                          showStored(edit, QString::number((config.*field).get()));
                      },
                      [edit, field](AppConfig& config, EngineOptions&) {
                          if (!isTouched(edit)) return;
                          if (const auto number = parseNumber(edit->text()))
                              config.*field = *number;
                      }});
}

void AdvancedSettings::addNumber(QFormLayout* form, std::string_view key, const char* objectName,
                                 std::int64_t EngineOptions::*field, std::string_view note) {
    QLineEdit* const edit = numberEdit(form, key, objectName, note);
    fields.push_back({[edit, field](const AppConfig&, const EngineOptions& engine) {
                          showStored(edit, QString::number(engine.*field));
                      },
                      [edit, field](AppConfig&, EngineOptions& engine) {
                          if (!isTouched(edit)) return;
                          if (const auto number = parseNumber(edit->text()))
                              engine.*field = *number;
                      }});
}

void AdvancedSettings::addDecimal(QFormLayout* form, std::string_view key, const char* objectName,
                                  float EngineOptions::*field) {
    QLineEdit* const edit = numberEdit(form, key, objectName);
    fields.push_back({[edit, field](const AppConfig&, const EngineOptions& engine) {
                          showStored(edit,
                                     toQt(formatText("%.2f", static_cast<double>(engine.*field))));
                      },
                      [edit, field](AppConfig&, EngineOptions& engine) {
                          if (!isTouched(edit)) return;
                          if (const auto number = parseDecimal(edit->text()))
                              engine.*field = *number;
                      }});
}

void AdvancedSettings::addFlag(QFormLayout* form, std::string_view key, const char* objectName,
                               Setting<bool> AppConfig::*field) {
    QCheckBox* const toggle = addToggle(form, key, objectName);
    fields.push_back({[toggle, field](const AppConfig& config, const EngineOptions&) {
                          toggle->setChecked(config.*field);
                      },
                      [toggle, field](AppConfig& config, EngineOptions&) {
                          config.*field = toggle->isChecked();
                      }});
}

void AdvancedSettings::load() {
    const EngineOptions engine = app.config->engine;
    for (const Field& field : fields) field.show(*app.config, engine);
}

std::optional<std::int64_t> AdvancedSettings::port() const {
    const std::optional<std::int64_t> typed = parseNumber(portEdit->text());
    return typed && *typed >= 1 && *typed <= highestPort ? typed : std::nullopt;
}

void AdvancedSettings::store(AppConfig& config, EngineOptions& engine) const {
    for (const Field& field : fields) field.take(config, engine);
}

}  // namespace zepho

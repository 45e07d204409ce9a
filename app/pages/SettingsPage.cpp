#include <QCheckBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "app/QtText.h"
#include "app/pages/AdvancedSettings.h"
#include "app/pages/Pages.h"
#include "app/pages/UpdateBlock.h"
#include "core/config/ZEPHOPaths.h"
#include "core/engine/EngineDiscovery.h"
#include "core/platform/LoginItem.h"

namespace zepho {
namespace {

// Where the service listens.
using Listener = std::pair<std::int64_t, std::string>;

Listener listenerOf(const AppConfig& config) {
    return {config.port, config.bindAddress};
}

QStringList languageNames() {
    QStringList names;
    for (const UiLang lang : allUiLangs) names << toQt(uiLangDisplay(lang));
    return names;
}

QStringList backendNames() {
    QStringList names;
    for (const ComputeBackend backend : allComputeBackends)
        names << toQt(computeBackendDisplay(backend));
    return names;
}

template <class Value, std::size_t count>
void choose(ChoiceBox* box, const std::array<Value, count>& values, Value chosen) {
    for (std::size_t i = 0; i < count; ++i)
        if (values[i] == chosen) box->setCurrentIndex(static_cast<int>(i));
}

template <class Value, std::size_t count>
Value chosenOf(const ChoiceBox* box, const std::array<Value, count>& values) {
    return values.at(static_cast<std::size_t>(box->currentIndex()));
}

class SettingsPage : public FormPage {
public:
    explicit SettingsPage(AppState& state);
    void appear() override { load(); }

private:
    void addBasic(QVBoxLayout* to);
    void addDisclosure(QVBoxLayout* to);
    void addFoot(QVBoxLayout* to);
    void load();
    void save();
    void resetAll();
    // Makes what the configuration holds now the truth everywhere.
    void apply(const Listener& before, std::function<void()> then);
    void restartEngine();
    void showCompute();
    void showAdvanced(bool shown);
    void setBusy(bool busy);

    ChoiceBox* language = nullptr;
    ChoiceBox* compute = nullptr;
    QLabel* computeLine = nullptr;
    QCheckBox* launchAtLogin = nullptr;
    QCheckBox* closeToTray = nullptr;
    QPushButton* disclosure = nullptr;
    AdvancedSettings* advanced = nullptr;
    std::vector<QPushButton*> changing;  // the buttons that wait for each other
    QLabel* status = nullptr;
};

SettingsPage::SettingsPage(AppState& state) : FormPage(state) {
    QVBoxLayout* const outer = column();
    QVBoxLayout* const content = addScrollColumn(outer);
    addBasic(content);
    content->addWidget(new UpdateBlock(app, this));
    addDisclosure(content);
    advanced = new AdvancedSettings(app, this);
    advanced->setObjectName("advanced");
    content->addWidget(advanced);
    content->addStretch(1);
    addFoot(outer);
    load();
}

void SettingsPage::addBasic(QVBoxLayout* to) {
    QFormLayout* const form = addForm(to);
    language = addChoice(form, "界面语言", "language", languageNames);
    compute = addChoice(form, "计算后端", "compute", backendNames);
    computeLine = dimLabel();
    computeLine->setObjectName("computeLine");
    QLabel* const codec = dimLabel();
    say(codec, "codec 留在 CPU(Metal 后端没有 PAD 算子)");
    auto* notes = new QVBoxLayout;
    notes->setSpacing(2);
    notes->addWidget(computeLine);
    notes->addWidget(codec);
    form->addRow(QString(), notes);
    connect(compute, &QComboBox::currentIndexChanged, this, [this] { showCompute(); });
    texts([this] { showCompute(); });

    launchAtLogin = addToggle(form, "开机即启动服务", "launchAtLogin");
    texts([this] { launchAtLogin->setToolTip(qT("登录时启动(收在托盘里)")); });
    closeToTray = addToggle(form, "关窗口时收进托盘", "closeToTray");
}

void SettingsPage::addDisclosure(QVBoxLayout* to) {
    QHBoxLayout* const row = addButtonRow(to);
    disclosure = addButton(row, "高级设置…", [] {});
    disclosure->setObjectName("disclosure");
    disclosure->setCheckable(true);
    texts([this] { showAdvanced(disclosure->isChecked()); });
    connect(disclosure, &QPushButton::toggled, this, &SettingsPage::showAdvanced);
}

void SettingsPage::addFoot(QVBoxLayout* to) {
    QHBoxLayout* const row = addButtonRow(to);
    QPushButton* const apply = addButton(row, "保存并应用", [this] { save(); });
    apply->setProperty("primary", true);
    changing.push_back(apply);
    changing.push_back(addButton(row, "恢复默认", [this] {
        app.confirm(qT("把所有设置恢复成默认值?"), [this] { resetAll(); });
    }));
    changing.push_back(addButton(row, "重启引擎", [this] { restartEngine(); }));
    addButton(row, "引擎日志", [this] { app.openEngineLog(); });
    addButton(row, "模型目录", [this] { app.openPath(ZEPHOPaths::modelsDir()); });
    status = dimLabel();
    status->setObjectName("status");
    to->addWidget(status);
    setBusy(false);
}

void SettingsPage::load() {
    const AppConfig& config = *app.config;
    choose(language, allUiLangs, config.uiLanguage.get());
    choose(compute, allComputeBackends, config.engine.get().compute);
    launchAtLogin->setChecked(config.launchAtLogin);
    closeToTray->setChecked(config.minimizeToTray);
    disclosure->setChecked(config.showAdvanced);
    showAdvanced(config.showAdvanced);
    advanced->load();
}

void SettingsPage::save() {
    const std::optional<std::int64_t> port = advanced->port();
    if (!port) {
        app.alert(qT("端口得是 1..65535 之间的数。"));
        return;
    }
    AppConfig& config = *app.config;
    const Listener before = listenerOf(config);
    EngineOptions engine = config.engine;
    advanced->store(config, engine);
    config.port = *port;
    engine.compute = chosenOf(compute, allComputeBackends);
    config.engine = engine;
    config.launchAtLogin = launchAtLogin->isChecked();
    // Its one switch in the window, which starts the service too.
    if (launchAtLogin->isChecked()) config.autoStartServer = true;
    config.minimizeToTray = closeToTray->isChecked();
    config.showAdvanced = disclosure->isChecked();
    config.uiLanguage = chosenOf(language, allUiLangs);
    config.applyBounds();
    app.setLanguage(config.uiLanguage);
    // What did not parse shows the value that it kept.
    advanced->load();
    apply(before, [this] { app.alert(qT("设置已保存")); });
}

void SettingsPage::resetAll() {
    const Listener before = listenerOf(*app.config);
    app.config->reset();
    load();
    app.setLanguage(app.config->uiLanguage);
    apply(before, [] {});
}

void SettingsPage::apply(const Listener& before, std::function<void()> then) {
    setBusy(true);
    const auto applied = [this, before, then = std::move(then)] {
        setBusy(false);
        if (listenerOf(*app.config) != before && app.serverRunning) {
            app.stopServer();
            app.startServer();
        }
        app.refreshAll();
        then();
    };
    app.inBackground(
        this, [wanted = app.config->launchAtLogin.get()] { setLoginItem(wanted); },
        [this, applied](const Outcome<Nothing>& changed) {
            if (!changed.ok()) AppLog::warn("ui", "cannot change login item: " + changed.error);
            app.saveAndApply(this, applied);
        });
}

void SettingsPage::restartEngine() {
    setBusy(true);
    app.inTurn(
        this, [service = app.service] { service->restartEngine(); },
        [this](const Outcome<Nothing>& done) {
            setBusy(false);
            app.tick();
            if (!done.ok()) app.alert(toQt(done.error));
        });
}

void SettingsPage::showCompute() {
    const ComputeBackend backend = chosenOf(compute, allComputeBackends);
    QString line = toQt(computeBackendDisplay(backend));
    if (!backendUsable(backend)) line += qT(" —— 这份引擎没带");
    computeLine->setText(line);
}

void SettingsPage::showAdvanced(bool shown) {
    disclosure->setText(qT(shown ? "收起高级设置" : "高级设置…"));
    if (advanced != nullptr) advanced->setVisible(shown);
}

void SettingsPage::setBusy(bool busy) {
    for (QPushButton* button : changing) button->setEnabled(!busy);
    status->setText(busy ? qT("引擎正在重启…") : QString());
}

}  // namespace

Page* makeSettingsPage(AppState& app) {
    return new SettingsPage(app);
}

}  // namespace zepho

#include "app/pages/UpdateBlock.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "app/QtText.h"

namespace zepho {

UpdateBlock::UpdateBlock(AppState& state, QWidget* parent) : FormPage(state, parent) {
    QVBoxLayout* const layout = blockColumn();
    auto* row = new QWidget(this);
    auto* buttons = new QHBoxLayout(row);
    buttons->setContentsMargins(0, 0, 0, 0);
    buttons->setSpacing(8);
    auto* version = new QLabel(toQt(ZEPHO::version), row);
    version->setObjectName("version");
    version->setTextInteractionFlags(Qt::TextSelectableByMouse);
    buttons->addWidget(version);
    buttons->addSpacing(8);
    buttons->addStretch(1);
    check = addButton(buttons, "检查更新", [this] { app.checkUpdate(); });
    check->setObjectName("checkUpdate");
    addField(addForm(layout), "版本", row, version);

    auto* line = new QHBoxLayout;
    line->setSpacing(8);
    layout->addLayout(line);
    result = new QLabel(this);
    result->setObjectName("updateResult");
    result->setTextFormat(Qt::PlainText);
    result->setWordWrap(true);
    line->addWidget(result, 1);
    line->addStretch(0);
    download = addButton(line, "下载", [this] {
        if (app.updateInfo) app.openUrl(toQt(app.updateInfo->downloadUrl));
    });
    page = addButton(line, "打开发布页", [this] {
        const bool known = app.updateInfo && !app.updateInfo->pageUrl.empty();
        app.openUrl(known ? toQt(app.updateInfo->pageUrl) : QString(UpdateSource::page));
    });
    connect(&app, &AppState::updateChanged, this, &UpdateBlock::refresh);
    texts([this] { refresh(); });
}

void UpdateBlock::refresh() {
    const std::optional<UpdateInfo>& info = app.updateInfo;
    const bool newer = !app.updateChecking && info && info->ok && info->newer;
    check->setEnabled(!app.updateChecking);
    download->setVisible(newer && !info->downloadUrl.empty());
    page->setVisible(newer);
    if (app.updateChecking)
        result->setText(qT("正在查询…"));
    else if (!info)
        result->setText(qT("点一下看看有没有新版"));
    else if (!info->ok)
        result->setText(qT("查不了:") + toQt(info->error));
    else if (newer)
        result->setText(qTF("有新版 %@,点右边去下载", info->latest));
    else
        result->setText(qTF("已是最新(%@)", info->current));
}

}  // namespace zepho

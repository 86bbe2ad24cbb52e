#include "widgetalerts.h"

#include <QApplication>
#include <QDesktopServices>
#include <QFileDialog>
#include <QMessageBox>
#include <QPushButton>

namespace {

// A warning-style box whose words are its text; the buttons in the order given, the first the
// default. Answers the index of the button pressed.
int runAlert(QWidget *parent, const QString &text, const QStringList &buttons)
{
    QMessageBox box(parent);
    box.setIcon(QMessageBox::Warning);
    box.setWindowTitle(QApplication::applicationDisplayName());
    box.setText(text);
    QList<QAbstractButton *> added;
    for (const QString &label : buttons) {
        // The action role keeps the buttons in the order they are added on every desktop style.
        added << box.addButton(label, QMessageBox::ActionRole);
    }
    box.setDefaultButton(qobject_cast<QPushButton *>(added.front()));
    // Escape answers the last button: "OK", "No" or "No to All", never a change.
    box.setEscapeButton(added.back());
    box.exec();
    return int(added.indexOf(box.clickedButton()));
}

} // namespace

void WidgetAlerts::message(QWidget *parent, const QString &text)
{
    runAlert(parent, text, {QStringLiteral("OK")});
}

bool WidgetAlerts::askYesNo(QWidget *parent, const QString &text)
{
    return runAlert(parent, text, {QStringLiteral("Yes"), QStringLiteral("No")}) == 0;
}

Naming::OverwriteAnswer WidgetAlerts::askOverwrite(QWidget *parent, const QString &path)
{
    switch (runAlert(parent,
                     Naming::OverwriteQuestion(path),
                     {QStringLiteral("Yes"),
                      QStringLiteral("Yes to All"),
                      QStringLiteral("No"),
                      QStringLiteral("No to All")})) {
    case 0:
        return Naming::OverwriteAnswer::Yes;
    case 1:
        return Naming::OverwriteAnswer::YesToAll;
    case 2:
        return Naming::OverwriteAnswer::No;
    default:
        return Naming::OverwriteAnswer::NoToAll;
    }
}

std::optional<QStringList> WidgetAlerts::choosePdfs(QWidget *parent)
{
    QFileDialog dialog(parent, QStringLiteral("Add PDF Documents"));
    dialog.setFileMode(QFileDialog::ExistingFiles);
    dialog.setNameFilter(QStringLiteral("PDF documents (*.pdf *.PDF)"));
    if (dialog.exec() != QDialog::Accepted) {
        return std::nullopt;
    }
    return dialog.selectedFiles();
}

QString WidgetAlerts::chooseFolder(QWidget *parent, const QString &startFolder)
{
    QFileDialog dialog(parent, QStringLiteral("Select Folder"), startFolder);
    dialog.setFileMode(QFileDialog::Directory);
    dialog.setOption(QFileDialog::ShowDirsOnly);
    // A panel to choose a folder, not to make or rename one.
    dialog.setOption(QFileDialog::ReadOnly);
    dialog.setLabelText(QFileDialog::Accept, QStringLiteral("Select Folder"));
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) {
        return {};
    }
    return dialog.selectedFiles().front();
}

QString WidgetAlerts::chooseSaveFile(QWidget *parent,
                                     const QString &caption,
                                     const QString &proposedPath,
                                     const QString &filter,
                                     const QString &defaultSuffix)
{
    QFileDialog dialog(parent, caption);
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setFileMode(QFileDialog::AnyFile);
    dialog.setNameFilter(filter);
    dialog.setDefaultSuffix(defaultSuffix);
    dialog.selectFile(proposedPath);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) {
        return {};
    }
    return dialog.selectedFiles().front();
}

QString WidgetAlerts::chooseOpenFile(QWidget *parent,
                                     const QString &caption,
                                     const QString &startFolder,
                                     const QString &filter)
{
    return QFileDialog::getOpenFileName(parent, caption, startFolder, filter);
}

void WidgetAlerts::openExternally(const QUrl &url)
{
    QDesktopServices::openUrl(url);
}

#include "widgetalerts.h"

#include <QApplication>
#include <QCheckBox>
#include <QColorDialog>
#include <QDesktopServices>
#include <QFileDialog>
#include <QMessageBox>
#include <QPushButton>

namespace {

// A box whose words are its text; the buttons in the order given, the first the default.
// Answers the index of the button pressed.
int runAlert(QWidget *parent,
             const QString &text,
             const QStringList &buttons,
             QMessageBox::Icon icon = QMessageBox::Warning,
             const QString &details = {},
             bool escapeIsFirst = false,
             const QString &checkBox = {},
             bool *checked = nullptr)
{
    QMessageBox box(parent);
    if (!checkBox.isEmpty()) {
        box.setCheckBox(new QCheckBox(checkBox)); // owned by the box
    }
    box.setIcon(icon);
    box.setWindowTitle(QApplication::applicationDisplayName());
    box.setText(text);
    box.setDetailedText(details);
    QList<QAbstractButton *> added;
    for (const QString &label : buttons) {
        // The action role keeps the buttons in the order they are added on every desktop style.
        added << box.addButton(label, QMessageBox::ActionRole);
    }
    box.setDefaultButton(qobject_cast<QPushButton *>(added.front()));
    // Escape answers "OK", or the last button of a question: "No" or "No to All", never a
    // change.
    box.setEscapeButton(escapeIsFirst ? added.front() : added.back());
    box.exec();
    if (checked) {
        *checked = box.checkBox() && box.checkBox()->isChecked();
    }
    return int(added.indexOf(box.clickedButton()));
}

} // namespace

int WidgetAlerts::notify(QWidget *parent, const Notice &notice)
{
    return runAlert(parent,
                    notice.text,
                    QStringList{QStringLiteral("OK")} + notice.buttons,
                    notice.icon == Notice::Icon::Information ? QMessageBox::Information
                                                             : QMessageBox::Warning,
                    notice.details,
                    true)
           - 1;
}

bool WidgetAlerts::askYesNoWithCheckBox(QWidget *parent,
                                        const QString &text,
                                        const QString &checkBox,
                                        bool *checked)
{
    return runAlert(parent,
                    text,
                    {QStringLiteral("Yes"), QStringLiteral("No")},
                    QMessageBox::Warning,
                    {},
                    false,
                    checkBox,
                    checked)
           == 0;
}

bool WidgetAlerts::askChoice(QWidget *parent,
                             const QString &text,
                             const QString &first,
                             const QString &second)
{
    return runAlert(parent, text, {first, second}) == 0;
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

QColor WidgetAlerts::chooseColor(QWidget *parent, const QColor &initial)
{
    return QColorDialog::getColor(initial, parent, QStringLiteral("Colour of the Text"));
}

QString WidgetAlerts::chooseOpenFile(QWidget *parent,
                                     const QString &caption,
                                     const QString &startFolder,
                                     const QString &filter)
{
    return QFileDialog::getOpenFileName(parent, caption, startFolder, filter);
}

bool WidgetAlerts::openExternally(const QUrl &url)
{
    return QDesktopServices::openUrl(url);
}

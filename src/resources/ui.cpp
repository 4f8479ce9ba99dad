#include "resources/ui.h"

#include "resources/strings.h"

#include <QFileDialog>
#include <QMessageBox>

namespace qarvo::ui {

namespace {
MessageHandler &messageHandler()
{
    static MessageHandler handler;
    return handler;
}

FileNameHandler &fileNameHandler()
{
    static FileNameHandler handler;
    return handler;
}
} // namespace

void showMessage(QWidget *parent, const MessageRecord &message)
{
    if (messageHandler()) {
        messageHandler()(message);
        return;
    }
    QMessageBox box(message.icon == MessageIcon::Critical ? QMessageBox::Critical
                                                          : QMessageBox::Information,
                    message.caption, message.text, QMessageBox::Ok, parent);
    box.exec();
}

void info(QWidget *parent, int stringId)
{
    infoText(parent, strings::text(stringId));
}

void infoText(QWidget *parent, const QString &text)
{
    showMessage(parent, {strings::infoCaption(), text, MessageIcon::Information});
}

void error(QWidget *parent, int stringId)
{
    showMessage(parent, {strings::errorCaption(), strings::text(stringId), MessageIcon::Critical});
}

QString getOpenFileName(QWidget *parent, const QString &caption, const QString &dir,
                        const QString &filter, const QString &defaultSuffix)
{
    if (fileNameHandler())
        return fileNameHandler()(caption, filter);
    QFileDialog dialog(parent, caption, dir, filter);
    dialog.setAcceptMode(QFileDialog::AcceptOpen);
    dialog.setFileMode(QFileDialog::ExistingFile);
    dialog.setDefaultSuffix(defaultSuffix);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return {};
    return dialog.selectedFiles().constFirst();
}

void setMessageHandler(MessageHandler handler)
{
    messageHandler() = std::move(handler);
}

void setFileNameHandler(FileNameHandler handler)
{
    fileNameHandler() = std::move(handler);
}

} // namespace qarvo::ui

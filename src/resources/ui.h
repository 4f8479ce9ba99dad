#pragma once

// Message boxes and the file-open dialog go through here, so that tests can answer them and the
// rest of the code never blocks on a box that nobody can click.

#include <qarvo/dataservice/qarvo_export.h>

#include <QString>

#include <functional>

class QWidget;

namespace qarvo::ui {

enum class MessageIcon { Information, Critical };

struct MessageRecord
{
    QString caption;
    QString text;
    MessageIcon icon = MessageIcon::Information;
};

QARVO_EXPORT void showMessage(QWidget *parent, const MessageRecord &message);

// "INFO" box with the information icon / "ERROR" box with the error icon, text from the table.
QARVO_EXPORT void info(QWidget *parent, int stringId);
QARVO_EXPORT void infoText(QWidget *parent, const QString &text);
QARVO_EXPORT void error(QWidget *parent, int stringId);

// The file-open dialog; an empty result means the user cancelled. A typed name without an
// extension gets `defaultSuffix`.
QARVO_EXPORT QString getOpenFileName(QWidget *parent, const QString &caption, const QString &dir,
                                     const QString &filter, const QString &defaultSuffix = {});

// Test seams: while a handler is installed, it answers instead of a real box or dialog.
using MessageHandler = std::function<void(const MessageRecord &)>;
using FileNameHandler = std::function<QString(const QString &caption, const QString &filter)>;
QARVO_EXPORT void setMessageHandler(MessageHandler handler);
QARVO_EXPORT void setFileNameHandler(FileNameHandler handler);

} // namespace qarvo::ui

#pragma once

// Answers for message boxes and file dialogs, and a way to drive a modal dialog from a test.

#include "resources/ui.h"

#include <QList>
#include <QString>

#include <functional>

class QWidget;

namespace qarvo::test {

// Catches every message box while it lives; nothing is shown.
class MessageCatcher
{
public:
    MessageCatcher();
    ~MessageCatcher();
    QList<ui::MessageRecord> messages;
    std::function<void(const ui::MessageRecord &)> onMessage;
    QStringList texts() const;
};

// Answers the file-open dialog with the given names, one per call ("" = cancelled).
class FileDialogAnswer
{
public:
    explicit FileDialogAnswer(QStringList names);
    ~FileDialogAnswer();
    QStringList filters;  // the filter text of every call
    QStringList captions; // the caption of every call

private:
    QStringList m_names;
};

// Calls `driver` with the next modal widget once it is shown. Whatever modal is still open after
// `safetyMs` is closed so that a failing check cannot hang the run; `timedOut()` then says so.
void whenModalShown(std::function<void(QWidget *modal)> driver, int safetyMs = 10000);
bool modalSafetyNetFired();
void resetModalSafetyNet();

} // namespace qarvo::test

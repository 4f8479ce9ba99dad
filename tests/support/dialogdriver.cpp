#include "dialogdriver.h"

#include <QApplication>
#include <QDialog>
#include <QElapsedTimer>
#include <QPointer>
#include <QTimer>
#include <QWidget>

#include <memory>

namespace qarvo::test {

MessageCatcher::MessageCatcher()
{
    ui::setMessageHandler([this](const ui::MessageRecord &m) {
        messages.append(m);
        if (onMessage)
            onMessage(m);
    });
}

MessageCatcher::~MessageCatcher()
{
    ui::setMessageHandler({});
}

QStringList MessageCatcher::texts() const
{
    QStringList out;
    for (const auto &m : messages)
        out << m.text;
    return out;
}

FileDialogAnswer::FileDialogAnswer(QStringList names) : m_names(std::move(names))
{
    ui::setFileNameHandler([this](const QString &caption, const QString &filter) {
        captions << caption;
        filters << filter;
        return m_names.isEmpty() ? QString() : m_names.takeFirst();
    });
}

FileDialogAnswer::~FileDialogAnswer()
{
    ui::setFileNameHandler({});
}

namespace {
bool g_safetyFired = false;

void closeAllModals()
{
    for (int guard = 0; guard < 20; ++guard) {
        QWidget *modal = QApplication::activeModalWidget();
        if (!modal)
            return;
        g_safetyFired = true;
        if (auto *dialog = qobject_cast<QDialog *>(modal))
            dialog->reject();
        else
            modal->close();
    }
}
} // namespace

void whenModalShown(std::function<void(QWidget *modal)> driver, int safetyMs)
{
    auto timer = new QTimer(qApp);
    auto clock = std::make_shared<QElapsedTimer>();
    clock->start();
    // The modal that is already up when this is armed (a sheet driving its own editor) is not
    // the one we are waiting for.
    QPointer<QWidget> before = QApplication::activeModalWidget();
    timer->setInterval(10);
    QObject::connect(timer, &QTimer::timeout, timer, [=]() {
        QWidget *modal = QApplication::activeModalWidget();
        if (modal && modal != before && modal->isVisible()) {
            timer->stop();
            timer->deleteLater();
            driver(modal);
            return;
        }
        if (clock->elapsed() > safetyMs) {
            timer->stop();
            timer->deleteLater();
            closeAllModals();
        }
    });
    timer->start();
}

bool modalSafetyNetFired()
{
    return g_safetyFired;
}

void resetModalSafetyNet()
{
    g_safetyFired = false;
}

} // namespace qarvo::test

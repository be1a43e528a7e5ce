#include "ZVXMessageBoxPresenter.h"

#include "ZVXClock.h"
#include "ZuveroApplication_p.h"

#include <QApplication>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>

#include <chrono>
#include <cmath>

namespace {

QMessageBox *makeBox(const QString &title, const QString &text)
{
    auto *box = new QMessageBox(QApplication::activeWindow());
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowTitle(title);
    box->setText(title);
    box->setInformativeText(text);
    box->setWindowModality(box->parentWidget() ? Qt::WindowModal : Qt::ApplicationModal);
    return box;
}

// Registered when the library is loaded; used once a QApplication exists.
const bool registered = [] {
    ZVXRegisterWidgetAlertPresenter(
        [] { return std::shared_ptr<ZuveroAlertPresenter>(new ZVXMessageBoxPresenter); });
    return true;
}();

} // namespace

void ZVXMessageBoxPresenter::showAlert(const ZuveroAlert &alert)
{
    QMessageBox *box = makeBox(alert.title, alert.message);
    const QStringList buttons
        = alert.buttons.isEmpty() ? QStringList{QStringLiteral("OK")} : alert.buttons;
    QList<QAbstractButton *> added;
    for (const QString &title : buttons)
        added.append(box->addButton(title, QMessageBox::AcceptRole));
    QObject::connect(box, &QMessageBox::buttonClicked, box,
                     [added, completion = alert.completion](QAbstractButton *button) {
                         if (completion)
                             completion(int(added.indexOf(button)));
                     });
    box->open();
}

void ZVXMessageBoxPresenter::showToast(const QString &title, const QString &text, double seconds)
{
    QMessageBox *box = makeBox(title, text);
    QPushButton *ok = box->addButton(QStringLiteral("OK"), QMessageBox::AcceptRole);
    box->open();
    if (seconds > 0) {
        // Dismissed after whole seconds, as if its only button were pressed.
        const auto delay = std::chrono::seconds(qint64(std::floor(seconds)));
        ZVXClock::after(delay, box, [ok] { ok->click(); });
    }
}

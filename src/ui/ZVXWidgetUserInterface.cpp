#include "ZVXWidgetUserInterface.h"

#include "Toast.h"

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>

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

} // namespace

// The core of the library declares this and leaves it to the user interface: widgets only in an
// application that has them.
std::unique_ptr<ZVXUserInterface> ZVXUserInterface::make()
{
    if (qobject_cast<QApplication *>(QCoreApplication::instance()))
        return std::make_unique<ZVXWidgetUserInterface>();
    return std::make_unique<ZVXHeadlessUserInterface>();
}

void ZVXWidgetUserInterface::showAlert(const ZVXAlert &alert)
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

void ZVXWidgetUserInterface::showToast(const QString &title, const QString &text, double seconds)
{
    Toast::display(title, text, seconds);
}

#include "ZVXManualClock.h"
#include "ZVXWidgetUserInterface.h"

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QTest>

using namespace std::chrono_literals;

namespace {
QMessageBox *visibleBox()
{
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (auto *box = qobject_cast<QMessageBox *>(widget); box && box->isVisible())
            return box;
    }
    return nullptr;
}
} // namespace

class TestWidgetUserInterface : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void widgetsOnlyWithWidgets();
    void alertReportsThePressedButton();
    void toastDismissesItself();
};

void TestWidgetUserInterface::widgetsOnlyWithWidgets()
{
    // An application with widgets gets message boxes (a headless one gets log lines).
    const std::unique_ptr<ZVXUserInterface> ui = ZVXUserInterface::make();
    QVERIFY(dynamic_cast<ZVXWidgetUserInterface *>(ui.get()));
}

void TestWidgetUserInterface::alertReportsThePressedButton()
{
    int pressed = -1;
    ZVXWidgetUserInterface().showAlert({QStringLiteral("Could not locate your position"),
                                        QStringLiteral("Please allow it."),
                                        {QStringLiteral("Cancel"), QStringLiteral("Settings")},
                                        [&](int index) { pressed = index; }});
    QMessageBox *box = visibleBox();
    QVERIFY(box);
    QCOMPARE(box->windowTitle(), QStringLiteral("Could not locate your position"));
    QCOMPARE(box->informativeText(), QStringLiteral("Please allow it."));
    QCOMPARE(box->buttons().size(), 2);
    for (QAbstractButton *button : box->buttons()) {
        if (button->text() == QStringLiteral("Settings"))
            button->click();
    }
    QCOMPARE(pressed, 1);
    QTRY_VERIFY(!visibleBox());
}

void TestWidgetUserInterface::toastDismissesItself()
{
    ZVXManualClock clock;
    ZVXWidgetUserInterface ui;
    ui.showToast(QStringLiteral("Error"), QStringLiteral("Could not send the message"), 2.7);
    QPointer<QMessageBox> box = visibleBox();
    QVERIFY(box);
    QCOMPARE(box->informativeText(), QStringLiteral("Could not send the message"));
    clock.advance(1999ms);
    QVERIFY(box && box->isVisible());
    clock.advance(1ms); // whole seconds: 2.7 s is 2 s
    QTRY_VERIFY(!box);

    // Without a time it stays until pressed.
    ui.showToast(QStringLiteral("Note"), QStringLiteral("x"), 0);
    box = visibleBox();
    QVERIFY(box);
    clock.advance(std::chrono::hours(1));
    QVERIFY(box->isVisible());
    box->buttons().first()->click();
    QTRY_VERIFY(!box);
}

QTEST_MAIN(TestWidgetUserInterface)
#include "tst_widgetuserinterface.moc"

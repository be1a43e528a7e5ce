#include "Toast.h"
#include "ZVXManualClock.h"
#include "ZVXWidgetUserInterface.h"

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QPointer>
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

QList<Toast *> visibleToasts()
{
    QList<Toast *> toasts;
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (auto *toast = qobject_cast<Toast *>(widget); toast && toast->isVisible())
            toasts.append(toast);
    }
    return toasts;
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
    const QList<Toast *> shown = visibleToasts();
    QCOMPARE(shown.size(), 1);
    QPointer<Toast> toast = shown.first();
    QCOMPARE(toast->accessibleName(), QStringLiteral("Error"));
    QCOMPARE(toast->accessibleDescription(), QStringLiteral("Could not send the message"));
    // Nothing waits on it: no modal window, no focus taken.
    QVERIFY(!QApplication::activeModalWidget());
    QVERIFY(toast->testAttribute(Qt::WA_ShowWithoutActivating));
    clock.advance(1999ms);
    QVERIFY(toast && toast->isVisible());
    clock.advance(1ms); // whole seconds: 2.7 s is 2 s
    QTRY_VERIFY(!toast);

    // A burst replaces the notice on screen instead of stacking; an untimed one stays until
    // pressed.
    for (int i = 0; i < 20; ++i)
        ui.showToast(QStringLiteral("Note"), QString::number(i), 0);
    QTRY_COMPARE(visibleToasts().size(), 1);
    toast = Toast::current();
    QCOMPARE(toast->text(), QStringLiteral("19"));
    clock.advance(std::chrono::hours(1));
    QVERIFY(toast->isVisible());
    auto *ok = toast->findChild<QAbstractButton *>();
    QVERIFY(ok);
    QTest::mouseClick(ok, Qt::LeftButton);
    QTRY_VERIFY(!toast);
    QTRY_VERIFY(visibleToasts().isEmpty());
}

QTEST_MAIN(TestWidgetUserInterface)
#include "tst_widgetuserinterface.moc"

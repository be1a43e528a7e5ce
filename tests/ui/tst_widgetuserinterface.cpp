#include "ZVXManualClock.h"
#include "ZuveroApplication.h"

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

class TestMessageBoxPresenter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void alertReportsThePressedButton();
    void toastDismissesItself();
};

void TestMessageBoxPresenter::alertReportsThePressedButton()
{
    int pressed = -1;
    ZuveroApplication::sharedApplication()->showAlert(
        {QStringLiteral("Could not locate your position"),
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

void TestMessageBoxPresenter::toastDismissesItself()
{
    ZVXManualClock clock;
    ZuveroApplication::sharedApplication()->showToast(
        QStringLiteral("Error"), QStringLiteral("Could not send the message"), 2.7);
    QPointer<QMessageBox> box = visibleBox();
    QVERIFY(box);
    QCOMPARE(box->informativeText(), QStringLiteral("Could not send the message"));
    clock.advance(1999ms);
    QVERIFY(box && box->isVisible());
    clock.advance(1ms); // whole seconds: 2.7 s is 2 s
    QTRY_VERIFY(!box);

    // Without a time it stays until pressed.
    ZuveroApplication::sharedApplication()->showToast(QStringLiteral("Note"), QStringLiteral("x"));
    box = visibleBox();
    QVERIFY(box);
    clock.advance(std::chrono::hours(1));
    QVERIFY(box->isVisible());
    box->buttons().first()->click();
    QTRY_VERIFY(!box);
}

QTEST_MAIN(TestMessageBoxPresenter)
#include "tst_messageboxpresenter.moc"

#include "AttachmentsState.h"
#include "ZVXActionSheetController.h"
#include "ZVXAttachmentPickerController.h"
#include "ZVXLogCapture.h"
#include "ZuveroChatInputAccessoryView.h"
#include "ZuveroChatViewController.h"

#include <QAbstractButton>
#include <QApplication>
#include <QBuffer>
#include <QCameraDevice>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMediaDevices>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QVBoxLayout>

#include <optional>

using namespace Qt::StringLiterals;

namespace {

const QString LibraryKey = u"NSPhotoLibraryUsageDescription"_s;
const QString CameraKey = u"NSCameraUsageDescription"_s;
const QString LocationKey = u"NSLocationWhenInUseUsageDescription"_s;

// A JPEG of \a image whose EXIF says "turn 90 degrees clockwise to show": a phone held upright.
QByteArray jpegTurnedByExif(const QImage &image)
{
    QByteArray jpeg;
    QBuffer buffer(&jpeg);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "JPEG", 90);
    // Big-endian TIFF header, one IFD entry: Orientation (0x0112), SHORT, 1 value, 6.
    const QByteArray tiff = QByteArray("MM\x00\x2a\x00\x00\x00\x08", 8)
        + QByteArray("\x00\x01"
                     "\x01\x12\x00\x03\x00\x00\x00\x01\x00\x06\x00\x00"
                     "\x00\x00\x00\x00",
                     18);
    const QByteArray payload = QByteArray("Exif\x00\x00", 6) + tiff;
    const int length = int(payload.size()) + 2;
    const QByteArray app1
        = QByteArray("\xff\xe1", 2) + char(length >> 8) + char(length & 0xff) + payload;
    return jpeg.left(2) + app1 + jpeg.mid(2);
}

QMenu *shownSheet()
{
    return qobject_cast<QMenu *>(QApplication::activePopupWidget());
}

void clickSheetButton(QMenu *sheet, const QString &title)
{
    for (QAction *action : sheet->actions()) {
        if (action->text() == title) {
            QTest::mouseClick(sheet, Qt::LeftButton, {}, sheet->actionGeometry(action).center());
            return;
        }
    }
    QFAIL(qPrintable(u"no button "_s + title));
}

QStringList buttonTitles(const QMenu *sheet)
{
    QStringList titles;
    for (const QAction *action : sheet->actions())
        if (!action->isSeparator())
            titles << action->text();
    return titles;
}

QFileDialog *shownDialog()
{
    for (QWidget *widget : QApplication::topLevelWidgets())
        if (widget->objectName() == u"imagePickerDialog"_s && widget->isVisible())
            return qobject_cast<QFileDialog *>(widget);
    return nullptr;
}

QMessageBox *shownAlert()
{
    for (QWidget *widget : QApplication::topLevelWidgets())
        if (widget->objectName() == u"alertView"_s && widget->isVisible())
            return qobject_cast<QMessageBox *>(widget);
    return nullptr;
}

// Types the file's path into the dialog and presses its Open button, as a user would.
void answerDialog(QFileDialog *dialog, const QString &path)
{
    auto *name = dialog->findChild<QLineEdit *>(u"fileNameEdit"_s);
    QVERIFY(name);
    name->setText(path);
    auto *buttons = dialog->findChild<QDialogButtonBox *>(u"buttonBox"_s);
    QVERIFY(buttons);
    QPushButton *open = buttons->button(QDialogButtonBox::Open);
    QVERIFY(open && open->isEnabled());
    QTest::mouseClick(open, Qt::LeftButton);
}

struct Outcome
{
    bool success = false;
    ZVXAttachmentKind kind = ZVXAttachmentKind::None;
    ZuveroImagePtr image;
    QVariantMap location;
};

} // namespace

class TestAttachmentPicker : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void pickerOutcomes_data();
    void pickerOutcomes();
    void withNothingToOfferTheDialogOpensAtOnce();
    void sheetShowsTenOtherButtons();
    void offeredKinds_data();
    void offeredKinds();
    void takingAPhotoNeedsARealCamera();
    void chosenPictureIsStagedInTheBar();

private:
    QTemporaryDir m_files;
    QString m_png;
    QString m_jpeg;
    QString m_notPicture;
    std::unique_ptr<QWidget> m_host;
    QPushButton *m_button = nullptr;
};

void TestAttachmentPicker::initTestCase()
{
    QVERIFY(m_files.isValid());
    QImage wide(40, 20, QImage::Format_RGB32);
    wide.fill(Qt::red);
    m_png = m_files.filePath(u"wide.png"_s);
    QVERIFY(wide.save(m_png, "PNG"));
    m_jpeg = m_files.filePath(u"upright.jpg"_s);
    QFile jpeg(m_jpeg);
    QVERIFY(jpeg.open(QIODevice::WriteOnly));
    jpeg.write(jpegTurnedByExif(wide));
    jpeg.close();
    // Named like a picture, which the dialog's filter lets through.
    m_notPicture = m_files.filePath(u"notes.png"_s);
    QFile text(m_notPicture);
    QVERIFY(text.open(QIODevice::WriteOnly));
    text.write("not a picture at all\n");
}

void TestAttachmentPicker::init()
{
    AttachmentsState::toggleAttachmentsState(true);
    AttachmentsState::toggleRemovalState(false);
    AttachmentsState::setUsageDescriptions({{LibraryKey, u"To send your pictures"_s}});
    AttachmentsState::setCameraAvailability([] { return false; });

    m_host = std::make_unique<QWidget>();
    m_host->resize(400, 300);
    auto *layout = new QVBoxLayout(m_host.get());
    layout->addStretch();
    m_button = new QPushButton(u"Attach"_s, m_host.get());
    layout->addWidget(m_button);
    m_host->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_host.get()));
}

void TestAttachmentPicker::cleanup()
{
    if (QMenu *sheet = shownSheet())
        sheet->close();
    for (QWidget *widget : QApplication::topLevelWidgets())
        if (widget->isVisible() && widget != m_host.get())
            widget->close();
    m_host.reset();
    AttachmentsState::setUsageDescriptions({});
    AttachmentsState::setCameraAvailability({});
    AttachmentsState::toggleRemovalState(false);
}

void TestAttachmentPicker::pickerOutcomes_data()
{
    QTest::addColumn<QString>("sheetButton"); // empty: Escape on the sheet
    QTest::addColumn<QString>("file"); // empty: the dialog is cancelled
    QTest::addColumn<bool>("success");
    QTest::addColumn<ZVXAttachmentKind>("kind");
    QTest::addColumn<QString>("contentType");
    QTest::addColumn<QSize>("shownSize");
    QTest::addColumn<bool>("alert");

    const QString choose = u"Choose Photo"_s;
    const auto picture = ZVXAttachmentKind::Picture;
    const auto none = ZVXAttachmentKind::None;
    QTest::newRow("png as it is") << choose << u"wide.png"_s << true << picture << u"image/png"_s
                                  << QSize(40, 20) << false;
    QTest::newRow("jpeg turned upright by its exif")
        << choose << u"upright.jpg"_s << true << picture << u"image/jpeg"_s << QSize(20, 40)
        << false;
    QTest::newRow("text file refused with an alert")
        << choose << u"notes.png"_s << false << none << QString() << QSize() << true;
    QTest::newRow("dialog cancelled")
        << choose << QString() << false << none << QString() << QSize() << false;
    QTest::newRow("sheet cancelled by its button")
        << u"Cancel"_s << QString() << false << none << QString() << QSize() << false;
    QTest::newRow("sheet left with escape")
        << QString() << QString() << false << none << QString() << QSize() << false;
    QTest::newRow("staged picture removed")
        << u"Remove"_s << QString() << true << ZVXAttachmentKind::Removal << QString() << QSize()
        << false;
}

void TestAttachmentPicker::pickerOutcomes()
{
    QFETCH(QString, sheetButton);
    QFETCH(QString, file);
    QFETCH(bool, success);
    QFETCH(ZVXAttachmentKind, kind);
    QFETCH(QString, contentType);
    QFETCH(QSize, shownSize);
    QFETCH(bool, alert);

    AttachmentsState::toggleRemovalState(true);
    QList<Outcome> outcomes;
    QPointer<ZVXAttachmentPickerController> picker
        = new ZVXAttachmentPickerController(m_host.get());
    picker->showActionSheetFromView(m_button, true,
                                    [&](bool ok, ZVXAttachmentKind k, const ZuveroImagePtr &image,
                                        const QVariantMap &location) {
                                        outcomes.append({ok, k, image, location});
                                    });
    QTRY_VERIFY(shownSheet());
    QMenu *sheet = shownSheet();
    QCOMPARE(buttonTitles(sheet), (QStringList{u"Choose Photo"_s, u"Remove"_s, u"Cancel"_s}));
    // Above the button it was opened from, as from the bottom of a window.
    QVERIFY(sheet->geometry().bottom() <= m_button->mapToGlobal(QPoint(0, 0)).y());

    if (sheetButton.isEmpty())
        QTest::keyClick(sheet, Qt::Key_Escape);
    else
        clickSheetButton(sheet, sheetButton);

    if (sheetButton == u"Choose Photo"_s) {
        QTRY_VERIFY(shownDialog());
        QPointer<QFileDialog> dialog = shownDialog();
        QVERIFY(dialog->testOption(QFileDialog::DontUseNativeDialog));
        if (file.isEmpty())
            dialog->reject();
        else
            answerDialog(dialog, m_files.filePath(file));
        QTRY_VERIFY(!dialog);
    }

    QTRY_COMPARE(outcomes.size(), 1);
    QTRY_VERIFY(!picker);
    const Outcome &outcome = outcomes.first();
    QCOMPARE(outcome.success, success);
    QCOMPARE(outcome.kind, kind);
    QCOMPARE(bool(outcome.image), !shownSize.isEmpty());
    if (outcome.image) {
        QCOMPARE(outcome.image->contentType().value_or(QString()), contentType);
        QCOMPARE(outcome.image->image().size(), shownSize);
        // The file's own bytes go out, not a re-encoding.
        QFile picked(m_files.filePath(file));
        QVERIFY(picked.open(QIODevice::ReadOnly));
        QCOMPARE(outcome.image->raw(), picked.readAll());
    }
    QCOMPARE(bool(shownAlert()), alert);
    QVERIFY(!shownSheet());
}

void TestAttachmentPicker::withNothingToOfferTheDialogOpensAtOnce()
{
    AttachmentsState::toggleAttachmentsState(false);
    std::optional<Outcome> outcome;
    auto *picker = new ZVXAttachmentPickerController(m_host.get());
    picker->showActionSheetFromView(m_button, false,
                                    [&](bool ok, ZVXAttachmentKind k, const ZuveroImagePtr &image,
                                        const QVariantMap &location) {
                                        outcome = Outcome{ok, k, image, location};
                                    });
    QVERIFY(shownDialog());
    QVERIFY(!shownSheet());
    answerDialog(shownDialog(), m_png);
    QTRY_VERIFY(outcome);
    QVERIFY(outcome->success && outcome->image && outcome->image->isPng());
}

void TestAttachmentPicker::sheetShowsTenOtherButtons()
{
    ZVXLogCapture log;
    auto *controller = ZVXActionSheetController::sheetControllerWithTitle(u"Pick"_s, m_host.get());
    QStringList pressed;
    QStringList titles;
    for (int i = 1; i <= 11; ++i) {
        titles << u"Button %1"_s.arg(i);
        controller->addOtherButtonTitle(titles.last(),
                                        [&pressed, t = titles.last()] { pressed << t; });
    }
    controller->setCancelButtonTitle(u"Cancel"_s, [&pressed] { pressed << u"cancel"_s; });
    controller->showFromView(m_button);
    QTRY_VERIFY(shownSheet());
    const QString warning = u"WARNING: ZVXActionSheetController supports up to 10 other button "
                            u"titles! Other buttons will be ignored."_s;
    const auto warnings = [&] { return log.lines().filter(warning).size(); };
    QCOMPARE(warnings(), 1);
    QCOMPARE(buttonTitles(shownSheet()), QStringList(titles.mid(0, 10)) << u"Cancel"_s);

    clickSheetButton(shownSheet(), u"Button 10"_s);
    QTRY_VERIFY(!shownSheet());
    QCOMPARE(pressed, QStringList{u"Button 10"_s});
    // The callbacks went with the sheet: the cancel button is not reported afterwards.
    QTRY_VERIFY(controller->otherButtonTitles().isEmpty());
    QCOMPARE(pressed.size(), 1);
    QCOMPARE(warnings(), 1);
}

void TestAttachmentPicker::offeredKinds_data()
{
    QTest::addColumn<bool>("libraryDeclared");
    QTest::addColumn<bool>("librarySwitch");
    QTest::addColumn<bool>("camera");
    QTest::addColumn<bool>("locationDeclared");
    QTest::addColumn<bool>("removal");
    QTest::addColumn<bool>("staged");
    QTest::addColumn<QList<ZVXAttachmentChoice>>("choices");
    QTest::addColumn<bool>("buttonShown");

    using C = ZVXAttachmentChoice;
    QTest::newRow("library") << true << true << false << false << false << false
                             << QList<C>{C::ChoosePhoto} << true;
    QTest::newRow("library switched off")
        << true << false << false << false << false << false << QList<C>{} << false;
    QTest::newRow("library not declared")
        << false << true << false << false << false << false << QList<C>{} << false;
    QTest::newRow("camera only") << false << true << true << false << false << false
                                 << QList<C>{C::TakePhoto} << true;
    QTest::newRow("location only")
        << false << true << false << true << false << false << QList<C>{C::Location} << true;
    QTest::newRow("removal without a staged picture")
        << true << true << false << false << true << false << QList<C>{C::ChoosePhoto} << true;
    QTest::newRow("removal of a staged picture") << true << true << false << false << true << true
                                                 << QList<C>{C::ChoosePhoto, C::Remove} << true;
    QTest::newRow("staged picture, removal not allowed")
        << true << true << false << false << false << true << QList<C>{C::ChoosePhoto} << true;
    QTest::newRow("everything") << true << true << true << true << true << true
                                << QList<C>{C::TakePhoto, C::ChoosePhoto, C::Remove, C::Location}
                                << true;
}

void TestAttachmentPicker::offeredKinds()
{
    QFETCH(bool, libraryDeclared);
    QFETCH(bool, librarySwitch);
    QFETCH(bool, camera);
    QFETCH(bool, locationDeclared);
    QFETCH(bool, removal);
    QFETCH(bool, staged);
    QFETCH(QList<ZVXAttachmentChoice>, choices);
    QFETCH(bool, buttonShown);

    QVariantMap reasons{{CameraKey, u"To take pictures"_s}};
    if (libraryDeclared)
        reasons.insert(LibraryKey, u"To send your pictures"_s);
    if (locationDeclared)
        reasons.insert(LocationKey, u"To share a place"_s);
    AttachmentsState::setUsageDescriptions(reasons);
    AttachmentsState::setCameraAvailability([camera] { return camera; });
    AttachmentsState::toggleLibraryAttachmentState(librarySwitch);
    AttachmentsState::toggleRemovalState(removal);

    QCOMPARE(ZVXAttachmentPickerController::offeredChoices(staged), choices);
    ZuveroChatViewController screen;
    screen.resize(360, 480);
    screen.show();
    auto *attach = screen.findChild<QWidget *>(u"attachmentButton"_s);
    QVERIFY(attach);
    QCOMPARE(attach->isVisible(), buttonShown);
}

void TestAttachmentPicker::takingAPhotoNeedsARealCamera()
{
    // The system's own answer, not the test's: on a machine without a camera, no "Take Photo".
    AttachmentsState::setCameraAvailability({});
    AttachmentsState::setUsageDescriptions(
        {{LibraryKey, u"To send your pictures"_s}, {CameraKey, u"To take pictures"_s}});
    const bool camera = !QMediaDevices::videoInputs().isEmpty();
    QCOMPARE(ZVXAttachmentPickerController::offeredChoices(false).contains(
                 ZVXAttachmentChoice::TakePhoto),
             camera);
    auto *picker = new ZVXAttachmentPickerController(m_host.get());
    picker->showActionSheetFromView(
        m_button, false,
        [](bool, ZVXAttachmentKind, const ZuveroImagePtr &, const QVariantMap &) {});
    QTRY_VERIFY(shownSheet());
    QCOMPARE(buttonTitles(shownSheet()).contains(u"Take Photo"_s), camera);
}

void TestAttachmentPicker::chosenPictureIsStagedInTheBar()
{
    AttachmentsState::toggleRemovalState(true);
    auto *screen = new ZuveroChatViewController(m_host.get());
    m_host->layout()->addWidget(screen);
    auto *attach = screen->findChild<QAbstractButton *>(u"attachmentButton"_s);
    auto *send = screen->findChild<QAbstractButton *>(u"sendButton"_s);
    auto *shown = screen->findChild<QLabel *>(u"attachmentImageView"_s);
    QVERIFY(attach && send && shown);
    QTRY_VERIFY(attach->isVisible());
    QVERIFY(!send->isEnabled());

    QTest::mouseClick(attach, Qt::LeftButton);
    QTRY_VERIFY(shownSheet());
    QCOMPARE(buttonTitles(shownSheet()), (QStringList{u"Choose Photo"_s, u"Cancel"_s}));
    clickSheetButton(shownSheet(), u"Choose Photo"_s);
    QTRY_VERIFY(shownDialog());
    answerDialog(shownDialog(), m_jpeg);

    // Staged, not sent: shown in the bar, waiting for the send button.
    QTRY_VERIFY(shown->isVisible());
    QCOMPARE(shown->pixmap().isNull(), false);
    QCOMPARE(screen->inputAccessoryView()->image().size(), QSize(20, 40));
    QVERIFY(send->isEnabled());
    QVERIFY(screen->chatView());

    // Pressed again, the choice offers taking the picture away.
    QTest::mouseClick(attach, Qt::LeftButton);
    QTRY_VERIFY(shownSheet());
    QCOMPARE(buttonTitles(shownSheet()),
             (QStringList{u"Choose Photo"_s, u"Remove"_s, u"Cancel"_s}));
    clickSheetButton(shownSheet(), u"Remove"_s);
    QTRY_VERIFY(!shown->isVisible());
    QVERIFY(screen->inputAccessoryView()->image().isNull());
    QVERIFY(!send->isEnabled());
}

QTEST_MAIN(TestAttachmentPicker)
#include "tst_attachmentpicker.moc"

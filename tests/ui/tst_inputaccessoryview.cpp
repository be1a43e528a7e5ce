#include "AttachmentsState.h"
#include "ZVXTemporaryUserDefaults.h"
#include "Zuvero.h"
#include "ZuveroChatInputAccessoryView.h"

#include <QAbstractButton>
#include <QAccessible>
#include <QApplication>
#include <QClipboard>
#include <QLabel>
#include <QMimeData>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QTest>
#include <QTextEdit>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

// Records what the bar tells its delegate, in order.
struct Recorder
{
    std::shared_ptr<ZuveroChatInputAccessoryViewDelegate> delegate
        = std::make_shared<ZuveroChatInputAccessoryViewDelegate>();
    QStringList calls;
    bool mayBeginEditing = true;

    Recorder()
    {
        const auto log = [this](const QString &name) {
            return [this, name](ZuveroChatInputAccessoryView *) { calls << name; };
        };
        delegate->chatInputAccessoryViewShouldBeginEditing
            = [this](ZuveroChatInputAccessoryView *) {
                  calls << u"shouldBegin"_s;
                  return mayBeginEditing;
              };
        delegate->chatInputAccessoryViewDidBeginEditing = log(u"didBegin"_s);
        delegate->chatInputAccessoryViewDidEndEditing = log(u"didEnd"_s);
        delegate->chatInputAccessoryViewDidChangeText = log(u"text"_s);
        delegate->chatInputAccessoryViewDidChangeSize = log(u"size"_s);
        delegate->chatInputAccessoryViewButtonDidChangeState = log(u"button"_s);
        delegate->chatInputAccessoryViewDidSend = log(u"send"_s);
        delegate->chatInputAccessoryViewSelectAttachment = log(u"attach"_s);
    }
};

// The bar at the bottom of a window, as a chat screen shows it, with the keyboard in its field.
struct ShownBar
{
    QWidget window;
    ZuveroChatInputAccessoryView *view = new ZuveroChatInputAccessoryView;
    QTextEdit *field = view->findChild<QTextEdit *>(u"textView"_s);
    QAbstractButton *sendButton = view->findChild<QAbstractButton *>(u"sendButton"_s);
    QAbstractButton *attachmentButton = view->findChild<QAbstractButton *>(u"attachmentButton"_s);
    QLabel *imageView = view->findChild<QLabel *>(u"attachmentImageView"_s);
    Recorder recorder;

    ShownBar()
    {
        auto *layout = new QVBoxLayout(&window);
        layout->setContentsMargins(0, 0, 0, 0);
        layout->addStretch();
        layout->addWidget(view);
        window.resize(400, 300);
        view->setDelegate(recorder.delegate);
    }

    // Shown, active, and the field clicked: the user is about to type.
    bool ready()
    {
        window.show();
        if (!QTest::qWaitForWindowActive(&window) || !field || !sendButton || !attachmentButton
            || !imageView)
            return false;
        QTest::mouseClick(field->viewport(), Qt::LeftButton, {}, QPoint(10, 10));
        recorder.calls.clear();
        return field->hasFocus();
    }

    /*
        What a user does, steps separated by "|":
          type:TEXT      the keys of TEXT, one after the other
          key:KEYS       keys as a key sequence writes them: Shift+Return, Num+Enter, Ctrl+V
          click:NAME     a click on the child of that object name
          clip:TEXT      TEXT put on the clipboard (elsewhere, by the user)
    */
    void act(const QString &script)
    {
        const QStringList steps = script.split(u'|', Qt::SkipEmptyParts);
        for (const QString &step : steps) {
            const QString verb = step.section(u':', 0, 0);
            const QString argument = step.section(u':', 1);
            if (verb == u"type") {
                QTest::keyClicks(field, argument);
            } else if (verb == u"key") {
                QTest::keySequence(field, QKeySequence::fromString(argument));
            } else if (verb == u"click") {
                auto *target = view->findChild<QWidget *>(argument);
                QVERIFY(target);
                QTest::mouseClick(target, Qt::LeftButton);
            } else if (verb == u"clip") {
                QGuiApplication::clipboard()->setText(argument);
            } else {
                QFAIL(qPrintable(u"unknown step "_s + step));
            }
        }
    }

    // The bar's height once the window has laid it out.
    int laidOutHeight() const
    {
        window.layout()->activate();
        return view->height();
    }
};

QImage picture(QSize size = QSize(160, 120))
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(QColor(0x20, 0x90, 0x40));
    return image;
}

QString letters(int count)
{
    return QString(count, u'a');
}

} // namespace

class TestInputAccessoryView : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void userActions_data();
    void userActions();
    void heights_data();
    void heights();
    void lengthLimit_data();
    void lengthLimit();
    void picturesAreStaged_data();
    void picturesAreStaged();
    void stagedPictureComesOffWithTheKeyboard();
    void stagingFromCode();
    void editingFollowsTheKeyboard();
    void delegateIsHeldWeakly();
    void sendButtonColoursAndFieldFont();
    void accessibleNames();
    void attachmentSources_data();
    void attachmentSources();
    void configurationDeclaresTheReasons();
};

void TestInputAccessoryView::init()
{
    QGuiApplication::clipboard()->clear();
    AttachmentsState::toggleAttachmentsState(true);
    AttachmentsState::toggleRemovalState(false);
    AttachmentsState::toggleEditingState(false);
    AttachmentsState::setUsageDescriptions({});
    AttachmentsState::setCameraAvailability({});
}

void TestInputAccessoryView::userActions_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("field");
    QTest::addColumn<bool>("sendEnabled");
    QTest::addColumn<QStringList>("calls");

    const QString text = u"text"_s;
    QTest::newRow("a word") << u"type:Hi"_s << u"Hi"_s << u"Hi"_s << true
                            << QStringList{u"button"_s, text, text};
    QTest::newRow("only spaces and line breaks")
        << u"type:  |key:Shift+Return|type: "_s << QString() << u"  \n "_s << false
        << QStringList{text, text, text, u"size"_s, text};
    QTest::newRow("white space around is not the message")
        << u"type: a |key:Shift+Return"_s << u"a"_s << u" a \n"_s << true
        << QStringList{text, u"button"_s, text, text, text, u"size"_s};
    QTest::newRow("Enter sends") << u"type:ok|key:Return"_s << u"ok"_s << u"ok"_s << true
                                 << QStringList{u"button"_s, text, text, u"send"_s};
    QTest::newRow("keypad Enter sends") << u"type:ok|key:Num+Enter"_s << u"ok"_s << u"ok"_s << true
                                        << QStringList{u"button"_s, text, text, u"send"_s};
    QTest::newRow("Enter with nothing to send adds no line")
        << u"type: |key:Return"_s << QString() << u" "_s << false << QStringList{text};
    QTest::newRow("Shift+Enter starts a line")
        << u"type:a|key:Shift+Return|type:b"_s << u"a\nb"_s << u"a\nb"_s << true
        << QStringList{u"button"_s, text, text, u"size"_s, text};
    // The size follows the text that changed it, both ways.
    QTest::newRow("a second line and back")
        << u"type:a|key:Shift+Return|type:b|key:Backspace|key:Backspace"_s << u"a"_s << u"a"_s
        << true << QStringList{u"button"_s, text, text, u"size"_s, text, text, text, u"size"_s};
    QTest::newRow("deleting the last letter disables send")
        << u"type:a|key:Backspace"_s << QString() << QString() << false
        << QStringList{u"button"_s, text, u"button"_s, text};
    QTest::newRow("send button") << u"type:go|click:sendButton"_s << u"go"_s << u"go"_s << true
                                 << QStringList{u"button"_s, text, text, u"send"_s};
    QTest::newRow("send button with nothing to send")
        << u"click:sendButton"_s << QString() << QString() << false << QStringList();
    QTest::newRow("attachment button") << u"click:attachmentButton"_s << QString() << QString()
                                       << false << QStringList{u"attach"_s};
    QTest::newRow("pasted text") << u"clip: pasted |key:Ctrl+V"_s << u"pasted"_s << u" pasted "_s
                                 << true << QStringList{u"button"_s, text};
}

void TestInputAccessoryView::userActions()
{
    QFETCH(QString, script);
    QFETCH(QString, text);
    QFETCH(QString, field);
    QFETCH(bool, sendEnabled);
    QFETCH(QStringList, calls);

    ShownBar bar;
    QVERIFY(bar.ready());
    bar.act(script);
    QCOMPARE(bar.view->text(), text);
    QCOMPARE(bar.field->toPlainText(), field);
    QCOMPARE(bar.sendButton->isEnabled(), sendEnabled);
    QCOMPARE(bar.view->validMessage(), sendEnabled);
    QCOMPARE(bar.recorder.calls, calls);
}

void TestInputAccessoryView::heights_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<QImage>("image");
    QTest::addColumn<QString>("content");

    const QString lines = u"type:1|key:Shift+Return|type:2|key:Shift+Return|type:3"_s;
    QString many;
    for (int line = 0; line < 12; ++line)
        many += u"type:line|key:Shift+Return|"_s;
    QTest::newRow("empty") << QString() << QImage() << u"min"_s;
    QTest::newRow("one line") << u"type:Hello"_s << QImage() << u"min"_s;
    QTest::newRow("three lines") << lines << QImage() << u"between"_s;
    QTest::newRow("twelve lines") << many << QImage() << u"max"_s;
    QTest::newRow("a picture") << QString() << picture() << u"max"_s;
    QTest::newRow("a tiny picture") << QString() << picture(QSize(4, 4)) << u"max"_s;
}

void TestInputAccessoryView::heights()
{
    QFETCH(QString, script);
    QFETCH(QImage, image);
    QFETCH(QString, content);

    ShownBar bar;
    QVERIFY(bar.ready());
    const double min = bar.view->minTextViewHeight();
    const double max = bar.view->maxTextViewHeight();
    const double margins = bar.view->textViewVerticalMargins();
    QVERIFY(min > 0 && margins > 0);
    QCOMPARE(max, 100.0);
    bar.act(script);
    if (!image.isNull())
        bar.view->setImage(image);

    const double height = bar.view->fittingHeight();
    if (content == u"min")
        QCOMPARE(height, std::max(min + margins, 44.0));
    else if (content == u"max")
        QCOMPARE(height, max + margins);
    else
        QVERIFY2(height > min + margins && height < max + margins,
                 qPrintable(QString::number(height)));
    QVERIFY(height >= 44.0);
    // The window's layout gives the bar what it asks for, and the field the rest.
    QCOMPARE(bar.laidOutHeight(), int(std::ceil(height)));
    QCOMPARE(bar.view->sizeHint().height(), int(std::ceil(height)));
    // Only a text taller than the field can grow scrolls.
    const bool scrolls = content == u"max" && image.isNull();
    QTRY_COMPARE(bar.field->verticalScrollBar()->maximum() > 0, scrolls);
}

void TestInputAccessoryView::lengthLimit_data()
{
    QTest::addColumn<int>("staged");
    QTest::addColumn<QString>("script");
    QTest::addColumn<int>("length");

    QTest::newRow("typing the 1001st letter") << 998 << u"type:bcd"_s << 1000;
    QTest::newRow("a new line at 1000") << 1000 << u"key:Shift+Return"_s << 1000;
    QTest::newRow("a paste that would pass 1000 is refused whole")
        << 990 << u"clip:0123456789ab|key:Ctrl+V"_s << 990;
    QTest::newRow("a paste that reaches 1000") << 990 << u"clip:0123456789|key:Ctrl+V"_s << 1000;
    QTest::newRow("a paste over a selection counts what it replaces")
        << 1000 << u"key:Ctrl+A|clip:%1|key:Ctrl+V"_s.arg(QString(900, u'z')) << 900;
    QTest::newRow("deleting from a longer staged text") << 1500 << u"key:Backspace"_s << 1499;
    QTest::newRow("but not typing into it") << 1500 << u"key:Backspace|type:x"_s << 1499;
    QTest::newRow("replacing it all with one letter") << 1500 << u"key:Ctrl+A|type:x"_s << 1;
}

void TestInputAccessoryView::lengthLimit()
{
    QFETCH(int, staged);
    QFETCH(QString, script);
    QFETCH(int, length);

    ShownBar bar;
    QVERIFY(bar.ready());
    // A staged text is never cut.
    bar.view->setText(letters(staged));
    QCOMPARE(bar.field->toPlainText().size(), staged);
    bar.act(script);
    QCOMPARE(bar.field->toPlainText().size(), length);
    QCOMPARE(bar.view->text().size(), length);
}

void TestInputAccessoryView::picturesAreStaged_data()
{
    QTest::addColumn<QString>("how");
    QTest::addColumn<bool>("staged");

    QTest::newRow("pasted image data") << u"paste image"_s << true;
    QTest::newRow("pasted image file") << u"paste file"_s << true;
    QTest::newRow("dropped on the field") << u"drop field"_s << true;
    QTest::newRow("image file dropped on the bar") << u"drop bar"_s << true;
    QTest::newRow("a text file dropped is no picture") << u"drop text file"_s << false;
}

void TestInputAccessoryView::picturesAreStaged()
{
    QFETCH(QString, how);
    QFETCH(bool, staged);

    QTemporaryDir folder;
    const QString png = folder.filePath(u"photo.png"_s);
    QVERIFY(picture().save(png));
    const QString txt = folder.filePath(u"notes.txt"_s);
    QFile notes(txt);
    QVERIFY(notes.open(QIODevice::WriteOnly) && notes.write("not a picture") > 0);
    notes.close();

    ShownBar bar;
    QVERIFY(bar.ready());
    QTest::keyClicks(bar.field, u"caption"_s);
    bar.recorder.calls.clear();

    auto *mime = new QMimeData;
    if (how == u"paste image" || how == u"drop field")
        mime->setImageData(picture());
    else
        mime->setUrls({QUrl::fromLocalFile(how == u"drop text file" ? txt : png)});
    if (how.startsWith(u"paste")) {
        QGuiApplication::clipboard()->setMimeData(mime);
        QTest::keySequence(bar.field, QKeySequence::Paste);
    } else {
        QWidget *target = how == u"drop field" ? bar.field->viewport() : bar.view;
        const QPointF at(target->width() / 2, target->height() / 2);
        QDragEnterEvent enter(at.toPoint(), Qt::CopyAction, mime, Qt::LeftButton, {});
        QApplication::sendEvent(target, &enter);
        QCOMPARE(enter.isAccepted(), staged);
        QDropEvent drop(at, Qt::CopyAction, mime, Qt::LeftButton, {});
        QApplication::sendEvent(target, &drop);
        delete mime;
    }

    QCOMPARE(bar.view->image().isNull(), !staged);
    QCOMPARE(bar.imageView->isVisible(), staged);
    // The picture stands in the field's place; the text waits under it.
    QCOMPARE(bar.field->toPlainText(), staged ? QString() : u"caption"_s);
    QCOMPARE(bar.view->text(), u"caption"_s);
    QCOMPARE(bar.recorder.calls, staged ? (QStringList{u"text"_s, u"size"_s}) : QStringList());
    if (staged)
        QCOMPARE(bar.view->fittingHeight(), 100.0 + bar.view->textViewVerticalMargins());
}

void TestInputAccessoryView::stagedPictureComesOffWithTheKeyboard()
{
    ShownBar bar;
    QVERIFY(bar.ready());
    QTest::keyClicks(bar.field, u"look"_s);
    auto *mime = new QMimeData;
    mime->setImageData(picture());
    QGuiApplication::clipboard()->setMimeData(mime);
    QTest::keySequence(bar.field, QKeySequence::Paste);
    QVERIFY(!bar.view->image().isNull());
    QTRY_VERIFY(!bar.imageView->pixmap().isNull());
    // Typing over the picture does nothing; Enter sends text and picture.
    bar.recorder.calls.clear();
    QTest::keyClicks(bar.field, u"zz"_s);
    QTest::keyClick(bar.field, Qt::Key_Return);
    QCOMPARE(bar.recorder.calls, QStringList{u"send"_s});
    QCOMPARE(bar.view->text(), u"look"_s);
    // Backspace takes the picture away and gives the text back.
    bar.recorder.calls.clear();
    QTest::keyClick(bar.field, Qt::Key_Backspace);
    QVERIFY(bar.view->image().isNull());
    QVERIFY(!bar.imageView->isVisible());
    QCOMPARE(bar.field->toPlainText(), u"look"_s);
    QCOMPARE(bar.recorder.calls, (QStringList{u"text"_s, u"size"_s}));
    QTest::keyClicks(bar.field, u"!"_s);
    QCOMPARE(bar.view->text(), u"look!"_s);
}

void TestInputAccessoryView::stagingFromCode()
{
    ShownBar bar;
    QVERIFY(bar.ready());
    // A text is kept and shown trimmed, and takes a staged picture away.
    bar.view->setImage(picture());
    bar.view->setText(u"\n  hello there \n"_s);
    QCOMPARE(bar.field->toPlainText(), u"hello there"_s);
    QVERIFY(bar.view->image().isNull() && !bar.imageView->isVisible());
    // A null picture is none: only the text, which the field no longer shows, is left to send.
    bar.view->setImage(QImage());
    QCOMPARE(bar.field->toPlainText(), QString());
    QCOMPARE(bar.view->text(), u"hello there"_s);
    QVERIFY(bar.sendButton->isEnabled());
    QCOMPARE(bar.view->responder(), static_cast<QWidget *>(bar.field));
    // Staging from code tells only of the button: the screen that stages knows the rest.
    QCOMPARE(bar.recorder.calls, QStringList{u"button"_s});
    bar.view->setText(QString());
    QCOMPARE(bar.recorder.calls, (QStringList{u"button"_s, u"button"_s}));
}

void TestInputAccessoryView::editingFollowsTheKeyboard()
{
    ShownBar bar;
    auto *other = new QTextEdit(&bar.window);
    bar.window.layout()->addWidget(other);
    bar.window.show();
    QVERIFY(QTest::qWaitForWindowActive(&bar.window));
    other->setFocus();
    bar.recorder.calls.clear();

    QTest::mouseClick(bar.field->viewport(), Qt::LeftButton, {}, QPoint(10, 10));
    QVERIFY(bar.field->hasFocus());
    other->setFocus();
    QCOMPARE(bar.recorder.calls, (QStringList{u"shouldBegin"_s, u"didBegin"_s, u"didEnd"_s}));

    // A delegate that says no keeps the keyboard out of the field.
    bar.recorder.calls.clear();
    bar.recorder.mayBeginEditing = false;
    QTest::mouseClick(bar.field->viewport(), Qt::LeftButton, {}, QPoint(10, 10));
    QVERIFY(!bar.field->hasFocus());
    QCOMPARE(bar.recorder.calls, QStringList{u"shouldBegin"_s});

    // Without the question the answer is yes.
    bar.recorder.calls.clear();
    bar.recorder.delegate->chatInputAccessoryViewShouldBeginEditing = nullptr;
    bar.view->responder()->setFocus();
    QVERIFY(bar.field->hasFocus());
    QCOMPARE(bar.recorder.calls, QStringList{u"didBegin"_s});
}

void TestInputAccessoryView::delegateIsHeldWeakly()
{
    ShownBar bar;
    QVERIFY(bar.ready());
    int sends = 0;
    {
        auto delegate = std::make_shared<ZuveroChatInputAccessoryViewDelegate>();
        delegate->chatInputAccessoryViewDidSend
            = [&sends](ZuveroChatInputAccessoryView *) { ++sends; };
        bar.view->setDelegate(delegate);
        QTest::keyClicks(bar.field, u"a"_s);
        QTest::keyClick(bar.field, Qt::Key_Return);
        QCOMPARE(sends, 1);
    }
    QTest::keyClick(bar.field, Qt::Key_Return);
    QTest::keyClicks(bar.field, u"b"_s);
    QCOMPARE(sends, 1);
    QVERIFY(bar.view->delegate().expired());
}

void TestInputAccessoryView::sendButtonColoursAndFieldFont()
{
    ShownBar bar;
    QVERIFY(bar.ready());
    const auto hasColour = [&](const QColor &colour) {
        const QImage image = bar.sendButton->grab().toImage();
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                const QColor pixel = image.pixelColor(x, y);
                if (std::abs(pixel.red() - colour.red()) < 40
                    && std::abs(pixel.green() - colour.green()) < 40
                    && std::abs(pixel.blue() - colour.blue()) < 40)
                    return true;
            }
        }
        return false;
    };
    const QColor red(230, 20, 20);
    const QColor green(20, 200, 20);
    bar.view->setEnabledSendButtonColor(red);
    bar.view->setDisabledSendButtonColor(green);
    // No colour for the disabled title is no change.
    bar.view->setDisabledSendButtonColor(QColor());
    QVERIFY(hasColour(green) && !hasColour(red));
    QTest::keyClicks(bar.field, u"a"_s);
    QVERIFY(hasColour(red) && !hasColour(green));
    // A palette of another tint keeps the title's own colour.
    QPalette palette = bar.view->palette();
    palette.setColor(QPalette::Highlight, Qt::blue);
    bar.view->setPalette(palette);
    QVERIFY(hasColour(red));
    // Without its own colour the title takes the tint.
    bar.view->setEnabledSendButtonColor(QColor());
    QVERIFY(hasColour(QColor(Qt::blue)) && !hasColour(red));

    // No font is no change; a larger one makes one line taller than the form's.
    const QFont before = bar.field->font();
    bar.view->setMessageFieldFont(std::nullopt);
    QCOMPARE(bar.field->font(), before);
    QFont large = before;
    large.setPixelSize(40);
    bar.view->setMessageFieldFont(large);
    QCOMPARE(bar.field->font().pixelSize(), 40);
    QVERIFY(bar.view->fittingHeight()
            > bar.view->minTextViewHeight() + bar.view->textViewVerticalMargins());
}

void TestInputAccessoryView::accessibleNames()
{
    ShownBar bar;
    QVERIFY(bar.ready());
    bar.view->setImage(picture());
    QAccessible::setActive(true);
    QStringList names;
    QList<QAccessibleInterface *> pending{QAccessible::queryAccessibleInterface(bar.view)};
    while (!pending.isEmpty()) {
        QAccessibleInterface *node = pending.takeFirst();
        QVERIFY(node);
        if (!node->text(QAccessible::Name).isEmpty())
            names << node->object()->objectName() + u'=' + node->text(QAccessible::Name);
        for (int i = 0; i < node->childCount(); ++i)
            pending << node->child(i);
    }
    names.sort();
    QCOMPARE(
        names,
        (QStringList{u"attachmentButton=Add Attachment"_s, u"attachmentImageView=Picture to Send"_s,
                     u"sendButton=Send"_s, u"textView=Message"_s}));
    QAccessible::setActive(false);
}

void TestInputAccessoryView::attachmentSources_data()
{
    QTest::addColumn<bool>("switchesOn");
    QTest::addColumn<QStringList>("declared");
    QTest::addColumn<bool>("camera");
    QTest::addColumn<QString>("offered");

    const QString library = u"NSPhotoLibraryUsageDescription"_s;
    const QString cameraKey = u"NSCameraUsageDescription"_s;
    const QString location = u"NSLocationWhenInUseUsageDescription"_s;
    const QStringList all{library, cameraKey, location};
    QTest::newRow("nothing declared") << true << QStringList() << true << QString();
    QTest::newRow("all declared, a camera") << true << all << true << u"library camera location"_s;
    QTest::newRow("all declared, no camera") << true << all << false << u"library location"_s;
    QTest::newRow("camera not declared")
        << true << QStringList{library, location} << true << u"library location"_s;
    QTest::newRow("only the camera") << true << QStringList{cameraKey} << true << u"camera"_s;
    QTest::newRow("switched off") << false << all << true << QString();
}

void TestInputAccessoryView::attachmentSources()
{
    QFETCH(bool, switchesOn);
    QFETCH(QStringList, declared);
    QFETCH(bool, camera);
    QFETCH(QString, offered);

    int cameraQuestions = 0;
    AttachmentsState::setCameraAvailability([&] {
        ++cameraQuestions;
        return camera;
    });
    QVariantMap reasons;
    for (const QString &key : declared)
        reasons.insert(key, u"To share it with support."_s);
    // Blank reasons declare nothing.
    reasons.insert(u"NSPhotoLibraryUsageDescription"_s,
                   reasons.value(u"NSPhotoLibraryUsageDescription"_s, u"  "_s));
    AttachmentsState::setUsageDescriptions(reasons);
    AttachmentsState::toggleAttachmentsState(switchesOn);

    QStringList sources;
    if (AttachmentsState::isLibraryAttachmentEnabled())
        sources << u"library"_s;
    if (AttachmentsState::isCameraAttachmentEnabled())
        sources << u"camera"_s;
    if (AttachmentsState::isLocationAttachmentEnabled())
        sources << u"location"_s;
    QCOMPARE(sources.join(u' '), offered);
    QCOMPARE(AttachmentsState::isAttachmentsEnabled(), !offered.isEmpty());
    // The devices are looked for only when the camera could be offered otherwise.
    QCOMPARE(cameraQuestions > 0, switchesOn && declared.contains(u"NSCameraUsageDescription"_s));
    // The facade's switches are the same switches.
    QCOMPARE(Zuvero::isCameraAttachmentEnabled(), switchesOn);

    // Removal and editing answer their switch alone.
    QVERIFY(!AttachmentsState::isRemovalAllowed() && !AttachmentsState::isEditingAllowed());
    AttachmentsState::toggleRemovalState(true);
    QVERIFY(AttachmentsState::isRemovalAllowed() && !AttachmentsState::isEditingAllowed());
    AttachmentsState::toggleEditingState(true);
    QVERIFY(AttachmentsState::isEditingAllowed());
}

void TestInputAccessoryView::configurationDeclaresTheReasons()
{
    ZVXTemporaryUserDefaults defaults;
    AttachmentsState::setCameraAvailability([] { return true; });
    const QVariantMap raw{{u"apiKey"_s, u"k"_s},
                          {u"NSCameraUsageDescription"_s, u"To send a photo of the parcel."_s},
                          {u"NSLocationWhenInUseUsageDescription"_s, u""_s}};
    std::unique_ptr<Zuvero> zuvero(
        Zuvero::initWithConfigurationDictionary(Zuvero::normalizeConfigurationDictionary(raw)));
    QVERIFY(zuvero);
    QVERIFY(AttachmentsState::isCameraAttachmentEnabled());
    QVERIFY(!AttachmentsState::isLocationAttachmentEnabled());
    QVERIFY(!AttachmentsState::isLibraryAttachmentEnabled());
    // The facade can still switch a declared source off for everyone.
    Zuvero::disableCameraAttachment();
    QVERIFY(!AttachmentsState::isCameraAttachmentEnabled());
}

QTEST_MAIN(TestInputAccessoryView)
#include "tst_inputaccessoryview.moc"

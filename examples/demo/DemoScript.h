#pragma once

#include <QElapsedTimer>
#include <QFile>
#include <QObject>
#include <QPointer>
#include <QTimer>

#include <functional>

class DemoHost;
class DemoShopWindow;
class QAbstractItemView;
class QPixmap;
class QWidget;

/*
    The demo playing itself, for a machine without a display: it opens the
    chat, sends a text and a picture, waits for the agent's answers, sees a
    pushed answer arrive as a banner and taps it, opens the picture and a
    shared place, and switches to French and Arabic. What it sees goes into
    a folder: a screenshot per state and transcript.txt.

    Each step acts the way a user would (a click, keys, the clipboard) and
    then waits, checking ten times a second, for what the user would wait
    for; a step that takes more than stepTimeout fails the run.
*/
class DemoScript : public QObject
{
    Q_OBJECT

public:
    DemoScript(DemoHost *host, DemoShopWindow *window, const QString &folder,
               QObject *parent = nullptr);

    //! False when the folder cannot be written.
    bool start(QString *error);

    static constexpr int StepTimeoutSeconds = 30;

Q_SIGNALS:
    void finished(bool success);

private:
    struct Step
    {
        QString name;
        std::function<void()> act;
        std::function<bool()> done;
    };

    void plan();
    void next();
    void poll();
    void note(const QString &line);
    void fail(const QString &why);
    void screenshot(const QString &name, QWidget *window);
    void screenshotWithBanner(const QString &name);
    void save(const QString &name, const QPixmap &picture);
    void noteMemory(const QString &when);
    void noteConversation();

    QWidget *chat() const;
    QAbstractItemView *messageList() const;
    int rowsOfKind(QLatin1String kind) const;
    bool openRowOfKind(QLatin1String kind);
    QWidget *banner() const;
    QWidget *topScreen() const;
    QWidget *locationPicker() const;
    void typeInto(QWidget *widget, const QString &text);
    void press(QWidget *widget, int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier);
    void clickButton(const char *objectName);
    bool settled(int ticks);

    DemoHost *m_host;
    DemoShopWindow *m_window;
    QString m_folder;
    QFile m_transcript;
    QElapsedTimer m_clock;
    QTimer m_poll;
    QList<Step> m_steps;
    qsizetype m_index = -1;
    qint64 m_stepStarted = 0;
    int m_settleTicks = 0;
    bool m_registered = false;
    bool m_failed = false;
    int m_screenshots = 0;
};

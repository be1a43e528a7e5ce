#include "CliSession.h"

#include <Zuvero/ZuveroApplication.h>
#include <Zuvero/ZuveroCertificateAuthorities.h>
#include <Zuvero/ZuveroData.h>
#include <Zuvero/ZuveroException.h>
#include <Zuvero/ZuveroUserDefaults.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMimeDatabase>

#include <cerrno>
#include <cstdio>
#include <unistd.h>

namespace {

// Failures of the command itself rather than of the library.
const QString CliErrorDomain = QStringLiteral("zuvero-cli");
enum CliErrorCode : qint64 {
    MessagesStillWaiting = 1,
    EarlierRegistrationFailed = 2,
};

void printOut(const QString &line)
{
    std::fprintf(stdout, "%s\n", line.toUtf8().constData());
    std::fflush(stdout);
}

void printError(const QString &line)
{
    std::fprintf(stderr, "zuvero-cli: %s\n", line.toUtf8().constData());
}

QString json(const QVariantMap &object)
{
    return QString::fromUtf8(
        QJsonDocument(QJsonObject::fromVariantMap(object)).toJson(QJsonDocument::Compact));
}

// A file to attach: pictures are shrunk as the library does for picked photos.
std::optional<ZuveroChatAttachmentPtr> attachmentFromFile(const QString &path, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("cannot read %1: %2").arg(path, file.errorString());
        return std::nullopt;
    }
    const QByteArray bytes = file.readAll();
    const QMimeType type = QMimeDatabase().mimeTypeForFileNameAndData(path, bytes);
    const QString name = QFileInfo(path).fileName();
    ZuveroChatAttachmentPtr attachment;
    if (type.name().startsWith(QLatin1String("image/"))
        && ZuveroImage::contentTypeForImageData(bytes) != ZuveroImageType::Unknown) {
        const ZuveroImagePtr image = ZuveroImage::initWithRawData(bytes);
        if (!image->image().isNull()) {
            image->restrictSizeToOptimal();
            attachment = ZuveroChatAttachment::initWithImage(image);
        }
    }
    if (!attachment) {
        attachment = ZuveroChatAttachment::init();
        attachment->setContentType(type.name());
        attachment->setData(bytes);
    }
    attachment->setFilename(name);
    attachment->setLength(quint64(attachment->data().value_or(QByteArray()).size()));
    return attachment;
}

} // namespace

CliSession::CliSession(const CliArguments &arguments, QObject *parent)
    : QObject(parent)
    , m_arguments(arguments)
    , m_delegate(std::make_shared<ZuveroDelegate>())
{
    m_delegate->zuveroDidBeginNetworkActivity = [this](Zuvero *) { ++m_activeBursts; };
    m_delegate->zuveroDidEndNetworkActivity = [this](Zuvero *) { --m_activeBursts; };
    // A terminal has no in-app banner or chat screen to open: the messages are printed instead.
    m_delegate->zuveroDisplayChatViewController = [](Zuvero *) {};
}

CliSession::~CliSession()
{
    delete m_zuvero;
}

bool CliSession::start()
{
    if (!makeFacade())
        return false;
    QMetaObject::invokeMethod(this, &CliSession::run, Qt::QueuedConnection);
    return true;
}

bool CliSession::makeFacade()
{
    const CliArguments &a = m_arguments;
    if (a.stateDirectory) {
        QDir().mkpath(*a.stateDirectory);
        ZuveroUserDefaults::setStandardLocation(
            QDir(*a.stateDirectory).filePath(QStringLiteral("Zuvero.ini")));
    }
    if (a.caFile) {
        QFile authority(*a.caFile);
        if (!authority.open(QIODevice::ReadOnly)
            || ZuveroAddTrustedCertificateAuthorities(authority.readAll()) == 0) {
            usageError(QStringLiteral("%1 holds no certificate authority").arg(*a.caFile));
            return false;
        }
    }

    QVariantMap configuration;
    if (a.configFile) {
        ZuveroError error;
        const std::optional<QVariantMap> file
            = Zuvero::configurationDictionaryWithContentsOfFile(*a.configFile, &error);
        if (!file) {
            usageError(error.localizedDescription());
            return false;
        }
        configuration = Zuvero::normalizeConfigurationDictionary(*file);
    }
    if (!a.host.isEmpty())
        configuration.insert(QStringLiteral("hostname"), a.host);
    if (a.apiKey)
        configuration.insert(QStringLiteral("apiKey"), *a.apiKey);
    if (a.apiSecret)
        configuration.insert(QStringLiteral("apiSecret"), *a.apiSecret);
    // The credentials come after the identity (below): each identity setter registers anew when
    // it can, and a command should make the one registration it needs, not one per option.
    const QString secret = configuration.take(QStringLiteral("apiSecret")).toString();
    const QVariant apiKey = configuration.take(QStringLiteral("apiKey"));
    if (!secret.isEmpty() && !ZuveroDataWithHexString(secret)) {
        usageError(QStringLiteral("the API secret is not hexadecimal"));
        return false;
    }
    if (a.language)
        configuration.insert(QStringLiteral("language"), *a.language);

    try {
        m_zuvero = Zuvero::initWithConfigurationDictionary(configuration);
    } catch (const ZuveroException &e) {
        usageError(QString::fromUtf8(e.what()));
        return false;
    }
    m_zuvero->setDelegate(m_delegate);
    // A state folder keeps the queue too: what a run could not send, the next one sends.
    if (a.stateDirectory) {
        m_zuvero->setOfflineMessagesDirectory(*a.stateDirectory);
        m_zuvero->setPersistsOfflineMessages(true);
    }
    if (a.userId)
        m_zuvero->setUserIdentifier(*a.userId);
    if (a.userName)
        m_zuvero->setUserName(*a.userName);
    if (a.authInfo)
        m_zuvero->setAuthenticationInfo(*a.authInfo);
    if (a.deviceToken)
        m_zuvero->setDeviceToken(*a.deviceToken);
    if (a.developmentAPNS)
        m_zuvero->setDevelopmentAPNS(true);
    if (!secret.isEmpty())
        m_zuvero->setApiSecret(secret);
    else if (apiKey.metaType().id() == QMetaType::QString)
        m_zuvero->setApiKey(apiKey.toString());
    // A token is identity and credential at once: it registers as soon as it is set.
    if (a.jwt)
        m_zuvero->setJwt(*a.jwt);
    return true;
}

void CliSession::run()
{
    const QString &command = m_arguments.command;
    try {
        if (command == QLatin1String("register"))
            registerNow();
        else if (command == QLatin1String("status"))
            status();
        else if (command == QLatin1String("send"))
            send();
        else if (command == QLatin1String("history"))
            history();
        else if (command == QLatin1String("mark-read"))
            markRead();
        else if (command == QLatin1String("push"))
            push();
        else if (command == QLatin1String("token"))
            token();
        else if (command == QLatin1String("queue"))
            queue();
        else if (command == QLatin1String("chat"))
            chat();
    } catch (const ZuveroException &e) {
        // A facade without credentials, for instance.
        usageError(QString::fromUtf8(e.what()));
    }
}

void CliSession::fail(const ZuveroError &error)
{
    if (m_done)
        return;
    printError(
        QStringLiteral("%1 %2: %3")
            .arg(error.domain(), QString::number(error.code()), error.localizedDescription()));
    m_done = true;
    Q_EMIT finished(1);
}

void CliSession::usageError(const QString &message)
{
    if (m_done)
        return;
    printError(message);
    m_done = true;
    Q_EMIT finished(2);
}

void CliSession::succeed()
{
    if (m_done)
        return;
    m_done = true;
    Q_EMIT finished(0);
}

void CliSession::showProgress(double upload)
{
    if (!isatty(STDERR_FILENO))
        return;
    std::fprintf(stderr, "\rsending %3d%%%s", int(upload * 100), upload >= 1.0 ? "\n" : "");
    std::fflush(stderr);
}

void CliSession::registerNow()
{
    m_zuvero->setNeedsRegistration(true);
    m_zuvero->registerIfNeeded([this](bool success, const ZuveroError &error) {
        if (!success)
            return fail(error);
        // The registration a token started on its own failed before this one: the facade still
        // wants to register, so the device is not known to the server as this run left it.
        if (m_zuvero->needsRegistration())
            return fail(ZuveroError::withDescription(
                CliErrorDomain, EarlierRegistrationFailed,
                QStringLiteral("an earlier registration of this run failed")));
        printOut(QStringLiteral("registered"));
        succeed();
    });
}

void CliSession::status()
{
    m_zuvero->connection()->loadUserStatus([this](qint64 count, const ZuveroError &error) {
        if (!error.isNull())
            return fail(error);
        printOut(QString::number(count));
        succeed();
    });
}

void CliSession::send()
{
    ZuveroChatAttachmentList attachments;
    for (const QString &path : std::as_const(m_arguments.files)) {
        QString error;
        const std::optional<ZuveroChatAttachmentPtr> attachment = attachmentFromFile(path, &error);
        if (!attachment)
            return usageError(error);
        attachments.append(*attachment);
    }
    const ZuveroChatMessagePtr message
        = ZuveroChatMessage::initWithText(m_arguments.operands.first(), attachments);
    if (const std::optional<CliLocation> &place = m_arguments.location) {
        QVariantMap location{{QStringLiteral("lat"), place->latitude},
                             {QStringLiteral("lng"), place->longitude}};
        if (place->span)
            location.insert(QStringLiteral("d"), *place->span);
        if (place->address)
            location.insert(QStringLiteral("address"), *place->address);
        message->setLocationDictionary(location);
    }
    if (m_arguments.context)
        m_zuvero->setMessageContextInfo(*m_arguments.context);
    m_zuvero->connection()->sendChatMessage(
        message,
        [this, message](bool success, const ZuveroError &error) {
            if (!success)
                return fail(error);
            printOut(message->uuid());
            succeed();
        },
        [this](double upload, double) { showProgress(upload); });
}

void CliSession::history()
{
    m_zuvero->connection()->loadMessageSinceDate(
        m_arguments.since, m_arguments.until, m_arguments.limit,
        [this](const std::optional<ZuveroChatMessageList> &messages, bool more,
               const ZuveroError &error) {
            if (!messages)
                return fail(error);
            for (const ZuveroChatMessagePtr &message : *messages)
                printOut(json(message->propertyList()));
            printOut(more ? QStringLiteral("more: yes") : QStringLiteral("more: no"));
            succeed();
        });
}

void CliSession::markRead()
{
    ZuveroChatMessageList messages;
    for (const QString &operand : std::as_const(m_arguments.operands)) {
        const QStringList parts = operand.split(QLatin1Char('@'));
        auto message = ZuveroChatMessage::init();
        message->setUuid(parts.first());
        if (parts.size() > 1) {
            bool ok = false;
            const double seconds = parts.at(1).toDouble(&ok);
            if (!ok || parts.size() > 2 || parts.first().isEmpty())
                return usageError(QStringLiteral("\"%1\" is not UUID[@EPOCH]").arg(operand));
            message->setDate(QDateTime::fromMSecsSinceEpoch(qint64(seconds * 1000), Qt::UTC));
        }
        messages.append(message);
    }
    m_zuvero->connection()->markReadMessages(
        messages, [this, count = messages.size()](bool success, const ZuveroError &error) {
            if (!success)
                return fail(error);
            printOut(QStringLiteral("marked %1").arg(count));
            succeed();
        });
}

void CliSession::push()
{
    const QString source = m_arguments.operands.first();
    QFile file;
    const bool opened = source == QLatin1String("-")
        ? file.open(stdin, QIODevice::ReadOnly)
        : (file.setFileName(source), file.open(QIODevice::ReadOnly));
    if (!opened)
        return usageError(QStringLiteral("cannot read %1: %2").arg(source, file.errorString()));
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return usageError(QStringLiteral("%1 is not a JSON object").arg(source));
    const bool consumed
        = m_zuvero->consumeReceivedRemoteNotification(document.object().toVariantMap());
    printOut(consumed ? QStringLiteral("consumed") : QStringLiteral("ignored"));
    succeed();
}

void CliSession::token()
{
    const std::optional<QString> jwt = m_zuvero->jwt();
    if (!jwt)
        return usageError(QStringLiteral("no token: give --api-secret or --jwt"));
    printOut(*jwt);
    succeed();
}

void CliSession::queue()
{
    ZuveroNotificationCenter *center = ZuveroNotificationCenter::defaultCenter();
    m_observers.push_back(center->addObserver(
        ZuveroChatDidAddOfflineMessageNotification, m_zuvero, [this](const ZuveroNotification &n) {
            const auto message
                = n.userInfo().value(QStringLiteral("message")).value<ZuveroChatMessagePtr>();
            if (message && !m_queued.contains(message))
                m_queued.append(message);
        }));
    // Messages an earlier run left in the queue count with the new ones.
    m_queued = m_zuvero->offlineMessages();
    const qsizetype total = m_queued.size() + m_arguments.operands.size();
    for (const QString &text : std::as_const(m_arguments.operands))
        m_zuvero->sendMessage(text);

    // A host retries what waits in the queue; here every second, until it is empty or time is up.
    const auto report = [this, total] {
        qsizetype errored = 0;
        for (const auto &message : std::as_const(m_queued))
            errored += message->isErrored();
        const qsizetype queued = m_zuvero->offlineMessages().size();
        const qsizetype sent = total - queued - errored;
        printOut(
            QStringLiteral("sent %1, queued %2, errored %3").arg(sent).arg(queued).arg(errored));
        return queued == 0 && errored == 0;
    };
    auto deadline = std::make_shared<QDateTime>(
        QDateTime::currentDateTimeUtc().addMSecs(qint64(m_arguments.waitSeconds * 1000)));
    connect(&m_retryTimer, &QTimer::timeout, this, [this, report, deadline] {
        const bool idle = m_activeBursts == 0 && m_zuvero->offlineMessages().isEmpty();
        if (idle || QDateTime::currentDateTimeUtc() >= *deadline) {
            m_retryTimer.stop();
            if (report())
                succeed();
            else
                fail(ZuveroError::withDescription(
                    CliErrorDomain, MessagesStillWaiting,
                    QStringLiteral("messages are still waiting to be sent")));
            return;
        }
        m_zuvero->sendOfflineMessages();
    });
    m_retryTimer.start(1000);
}

void CliSession::chat()
{
    printOut(QStringLiteral("Type a message and press Enter; end with Ctrl-D."));
    m_input = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this);
    connect(m_input, &QSocketNotifier::activated, this, &CliSession::readTypedLine);
    connect(&m_pollTimer, &QTimer::timeout, this, [this] { chatReload(); });
    chatReload();
}

void CliSession::readTypedLine()
{
    // Straight from the descriptor: stdio's buffer would hide lines from the notifier.
    char buffer[4096];
    const ssize_t count = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (count > 0) {
        m_typed.append(buffer, qsizetype(count));
        qsizetype end;
        while ((end = m_typed.indexOf('\n')) >= 0) {
            const QString line = QString::fromUtf8(m_typed.left(end)).trimmed();
            m_typed.remove(0, end + 1);
            if (!line.isEmpty()) {
                m_zuvero->sendMessage(line);
                // Shown once the server has it, in its place among the others.
                QTimer::singleShot(500, this, [this] {
                    if (!m_closing)
                        chatReload();
                });
            }
        }
        return;
    }
    if (count < 0 && errno == EINTR)
        return;
    // End of input: what was typed goes out, the conversation is shown once more, and then we end.
    m_input->setEnabled(false);
    const QString last = QString::fromUtf8(m_typed).trimmed();
    if (!last.isEmpty())
        m_zuvero->sendMessage(last);
    m_closing = true;
    connect(&m_retryTimer, &QTimer::timeout, this, [this] {
        if (m_activeBursts != 0 || !m_zuvero->offlineMessages().isEmpty()) {
            m_zuvero->sendOfflineMessages();
            return;
        }
        m_retryTimer.stop();
        chatReload(true);
    });
    m_retryTimer.start(200);
}

void CliSession::chatReload(bool last)
{
    const QDateTime since = m_lastDate.isValid() ? m_lastDate.addSecs(-60) : QDateTime();
    m_zuvero->connection()->loadMessageSinceDate(
        since, 50,
        [this, last](const std::optional<ZuveroChatMessageList> &messages, bool,
                     const ZuveroError &error) {
            if (!messages) {
                printError(QStringLiteral("%1 %2: %3")
                               .arg(error.domain(), QString::number(error.code()),
                                    error.localizedDescription()));
            } else {
                for (const ZuveroChatMessagePtr &message : *messages)
                    printChatMessage(message);
            }
            if (last)
                return succeed();
            // The server chooses the pace; as the chat screen does, never faster than 2 s nor
            // slower than 10 min.
            m_pollTimer.start(int(std::clamp(m_zuvero->pollingInterval(), 2.0, 600.0) * 1000));
        });
}

void CliSession::printChatMessage(const ZuveroChatMessagePtr &message)
{
    if (m_shown.contains(message->uuid()))
        return;
    m_shown.insert(message->uuid());
    if (!m_lastDate.isValid() || message->date() > m_lastDate)
        m_lastDate = message->date();
    QString text = message->text().value_or(QString());
    for (const ZuveroChatAttachmentPtr &attachment :
         message->attachments().value_or(ZuveroChatAttachmentList()))
        text += QStringLiteral(" [%1]").arg(attachment->filename().value_or(
            attachment->contentType().value_or(QStringLiteral("file"))));
    if (const auto place = message->locationDictionary())
        text += QStringLiteral(" [location %1, %2]")
                    .arg(place->value(QStringLiteral("lat")).toString(),
                         place->value(QStringLiteral("lng")).toString());
    const QString time = message->date().toLocalTime().toString(QStringLiteral("HH:mm"));
    if (message->isAgentMessage())
        printOut(QStringLiteral("%1 %2: %3")
                     .arg(time, message->userName().value_or(QStringLiteral("agent")), text));
    else if (message->isSystemMessage())
        printOut(QStringLiteral("%1 -- %2").arg(time, text));
    else
        printOut(QStringLiteral("%1 you: %2").arg(time, text));
}

#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

/*
    multipart/form-data bodies (RFC 7578 over RFC 2046), read on their own:
    a message upload is one JSON part named "message" and one part per
    file, and the console's replies are forms of text and files.
*/
namespace ZVXDevMultipart {

struct Part
{
    QString name;
    QString filename;
    QString contentType;
    QByteArray content;
    //! Where the content starts in the body.
    qsizetype offset = 0;
};

class Form
{
public:
    //! The first part named \a name, if any.
    const Part *part(const QString &name) const;
    QList<Part> parts;
};

inline constexpr int MaxParts = 100;
//! RFC 2046 allows no longer boundary.
inline constexpr int MaxBoundaryLength = 70;

//! The boundary parameter of a Content-Type such as `multipart/form-data; boundary=X`.
std::optional<QByteArray> boundary(const QByteArray &contentType);

//! The parts of \a body, or nothing when it is not a well-formed form with \a boundary.
std::optional<Form> parse(const QByteArray &body, const QByteArray &boundary);

} // namespace ZVXDevMultipart

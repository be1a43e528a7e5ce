#pragma once

#include <QVariantMap>

/*
    The attachment settings of the process, one set for every facade and
    every chat screen: which sources the host lets the user pick from (photo
    library, camera, location), whether a picked picture may be edited or
    removed, and the reasons the host declared for using the photo library,
    the camera and the location. The facade fills the reasons in from the
    configuration it is made from; the chat screen reads everything through
    AttachmentsState. Callable from any thread.
*/
namespace ZVXAttachmentSwitches {

enum class Switch { Library, Camera, Location, Removal, Editing };

//! Library, camera and location start on; removal and editing off.
bool isOn(Switch which);
void set(Switch which, bool on);

/*!
    The reasons declared, by key of ZVXConfiguration::usageDescriptionKeys():
    only those with text that says something.
*/
QVariantMap usageDescriptions();
//! Replaces the declared reasons with those \a declarations holds; other keys are ignored.
void setUsageDescriptions(const QVariantMap &declarations);
//! Adds the reasons \a configuration declares, keeping the ones it does not mention.
void declareUsageDescriptions(const QVariantMap &configuration);

} // namespace ZVXAttachmentSwitches

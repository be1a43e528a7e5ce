#include "AttachmentsState.h"

#include "ZVXAttachmentSwitches.h"

#include <QCameraDevice>
#include <QMediaDevices>
#include <QMutex>

namespace {

using ZVXAttachmentSwitches::Switch;

struct CameraAvailability
{
    QMutex mutex;
    std::function<bool()> available;
};

CameraAvailability &cameraAvailability()
{
    static CameraAvailability shared;
    return shared;
}

bool hasCamera()
{
    std::function<bool()> available;
    {
        QMutexLocker locker(&cameraAvailability().mutex);
        available = cameraAvailability().available;
    }
    return available ? available() : !QMediaDevices::videoInputs().isEmpty();
}

bool declared(const char *key)
{
    return ZVXAttachmentSwitches::usageDescriptions().contains(QLatin1String(key));
}

} // namespace

void AttachmentsState::toggleLibraryAttachmentState(bool enabled)
{
    ZVXAttachmentSwitches::set(Switch::Library, enabled);
}

void AttachmentsState::toggleCameraAttachmentState(bool enabled)
{
    ZVXAttachmentSwitches::set(Switch::Camera, enabled);
}

void AttachmentsState::toggleLocationAttachmentState(bool enabled)
{
    ZVXAttachmentSwitches::set(Switch::Location, enabled);
}

void AttachmentsState::toggleRemovalState(bool allowed)
{
    ZVXAttachmentSwitches::set(Switch::Removal, allowed);
}

void AttachmentsState::toggleEditingState(bool allowed)
{
    ZVXAttachmentSwitches::set(Switch::Editing, allowed);
}

void AttachmentsState::toggleAttachmentsState(bool enabled)
{
    toggleLibraryAttachmentState(enabled);
    toggleCameraAttachmentState(enabled);
    toggleLocationAttachmentState(enabled);
}

bool AttachmentsState::isLibraryAttachmentEnabled()
{
    return ZVXAttachmentSwitches::isOn(Switch::Library)
        && declared("NSPhotoLibraryUsageDescription");
}

bool AttachmentsState::isCameraAttachmentEnabled()
{
    // Looking for devices is the costly part: asked last.
    return ZVXAttachmentSwitches::isOn(Switch::Camera) && declared("NSCameraUsageDescription")
        && hasCamera();
}

bool AttachmentsState::isLocationAttachmentEnabled()
{
    return ZVXAttachmentSwitches::isOn(Switch::Location)
        && declared("NSLocationWhenInUseUsageDescription");
}

bool AttachmentsState::isAttachmentsEnabled()
{
    return isLibraryAttachmentEnabled() || isCameraAttachmentEnabled()
        || isLocationAttachmentEnabled();
}

bool AttachmentsState::isRemovalAllowed()
{
    return ZVXAttachmentSwitches::isOn(Switch::Removal);
}

bool AttachmentsState::isEditingAllowed()
{
    return ZVXAttachmentSwitches::isOn(Switch::Editing);
}

QVariantMap AttachmentsState::usageDescriptions()
{
    return ZVXAttachmentSwitches::usageDescriptions();
}

void AttachmentsState::setUsageDescriptions(const QVariantMap &descriptions)
{
    ZVXAttachmentSwitches::setUsageDescriptions(descriptions);
}

void AttachmentsState::setCameraAvailability(std::function<bool()> available)
{
    QMutexLocker locker(&cameraAvailability().mutex);
    cameraAvailability().available = std::move(available);
}

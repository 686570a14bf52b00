#import <AVFoundation/AVFoundation.h>

#include "platform/camerainventory.h"

QList<SystemCamera> systemCameraInventory()
{
    QList<SystemCamera> cameras;
    @autoreleasepool {
        NSArray<AVCaptureDevice *> *devices = [AVCaptureDevice devicesWithMediaType:AVMediaTypeVideo];
        for (AVCaptureDevice *device in devices)
            cameras.append({QString::fromUtf8(device.localizedName.UTF8String),
                            QString::fromUtf8(device.uniqueID.UTF8String)});
    }
    return cameras;
}

// AVFoundation knows no device folder; the folder is ignored.
QList<SystemCamera> systemCameraInventoryIn(const QString &)
{
    return systemCameraInventory();
}

// Requests to a device by an application's file.

#include "platform/host/nt/io/device_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/host/nt/io/device_object.h"
#include "tests/platform/nt/simulation/simulation_support.h"

namespace lidcam::host {
namespace {

/// A driver that records its requests, keeps those of code 1 pending, and fails openings on demand.
struct FileDriver {
  FileDriver() {
    InitializeDriverObject(Object);
    for (const int major : {IRP_MJ_CREATE, IRP_MJ_CLEANUP, IRP_MJ_CLOSE, IRP_MJ_DEVICE_CONTROL}) {
      Object.MajorFunction[major] = Dispatch;
    }
    EXPECT_EQ(IoCreateDevice(&Object, sizeof(FileDriver*), nullptr, FILE_DEVICE_UNKNOWN, 0, FALSE,
                             &Device),
              STATUS_SUCCESS);
    *static_cast<FileDriver**>(Device->DeviceExtension) = this;
  }
  FileDriver(const FileDriver&) = delete;
  FileDriver& operator=(const FileDriver&) = delete;
  ~FileDriver() noexcept(false) {
    if (std::uncaught_exceptions() == 0) IoDeleteDevice(Device);
  }

  static NTSTATUS NTAPI Dispatch(PDEVICE_OBJECT device, PIRP irp) {
    FileDriver& self = **static_cast<FileDriver**>(device->DeviceExtension);
    const IO_STACK_LOCATION& location = *IoGetCurrentIrpStackLocation(irp);
    self.Seen.push_back(location.MajorFunction);
    if (location.MajorFunction == IRP_MJ_CREATE) {
      const UNICODE_STRING& name = location.FileObject->FileName;
      self.Name.assign(name.Buffer, name.Buffer + name.Length / sizeof(WCHAR));
      self.Related = location.FileObject->RelatedFileObject;
      self.File = location.FileObject;
    }
    if (location.MajorFunction == IRP_MJ_DEVICE_CONTROL &&
        location.Parameters.DeviceIoControl.IoControlCode == 1) {
      IoMarkIrpPending(irp);
      IoSetCancelRoutine(irp, GiveBack);
      return STATUS_PENDING;
    }
    irp->IoStatus.Status =
        location.MajorFunction == IRP_MJ_CREATE ? self.CreateStatus : STATUS_SUCCESS;
    irp->IoStatus.Information = location.MajorFunction == IRP_MJ_DEVICE_CONTROL ? 5 : 0;
    const NTSTATUS status = irp->IoStatus.Status;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return status;
  }

  static void NTAPI GiveBack(PDEVICE_OBJECT, PIRP irp) {
    IoReleaseCancelSpinLock(irp->CancelIrql);
    irp->IoStatus.Status = STATUS_CANCELLED;
    irp->IoStatus.Information = 0;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
  }

  DRIVER_OBJECT Object{};
  PDEVICE_OBJECT Device = nullptr;
  NTSTATUS CreateStatus = STATUS_SUCCESS;
  std::vector<int> Seen;
  std::u16string Name;  ///< of the last opening, as are these
  PFILE_OBJECT Related = nullptr;
  PFILE_OBJECT File = nullptr;
};

std::unique_ptr<DeviceFile> OpenFile(FileDriver& driver) {
  std::unique_ptr<DeviceFile> file;
  EXPECT_EQ(DeviceFile::Open(driver.Device, u"", nullptr, file), STATUS_SUCCESS);
  return file;
}

TEST(DeviceFile, IsCreatedCleanedUpAndClosedInThatOrder) {
  Simulate({}, [] {
    FileDriver driver;
    std::unique_ptr<DeviceFile> file = OpenFile(driver);
    EXPECT_EQ(driver.Device->ReferenceCount, 1);
    EXPECT_EQ(OpenFileCount(), 1U);
    file.reset();
    EXPECT_THAT(driver.Seen, ::testing::ElementsAre(IRP_MJ_CREATE, IRP_MJ_CLEANUP, IRP_MJ_CLOSE));
    EXPECT_EQ(driver.Device->ReferenceCount, 0);
    EXPECT_EQ(OpenFileCount(), 0U);
  });
}

TEST(DeviceFile, ThatTheDriverRefusesLeavesNothingOpen) {
  Simulate({}, [] {
    FileDriver driver;
    driver.CreateStatus = STATUS_DELETE_PENDING;
    std::unique_ptr<DeviceFile> file;
    EXPECT_EQ(DeviceFile::Open(driver.Device, u"", nullptr, file), STATUS_DELETE_PENDING);
    EXPECT_EQ(file, nullptr);
    EXPECT_THAT(driver.Seen, ::testing::ElementsAre(IRP_MJ_CREATE));
    EXPECT_EQ(driver.Device->ReferenceCount, 0);
    EXPECT_EQ(OpenFileCount(), 0U);
  });
}

TEST(DeviceFile, ClosesOnlyWhenItsLastRequestHasComeBack) {
  Simulate({}, [] {
    FileDriver driver;
    std::unique_ptr<DeviceFile> file = OpenFile(driver);
    std::unique_ptr<DeviceRequest> request = file->BeginControl(1, {});
    LARGE_INTEGER now{};
    EXPECT_FALSE(request->Wait(&now));
    file.reset();
    EXPECT_EQ(driver.Seen.back(), IRP_MJ_CLEANUP);
    request->Cancel();
    EXPECT_TRUE(request->Wait());
    EXPECT_EQ(request->Status(), STATUS_CANCELLED);
    request.reset();
    EXPECT_EQ(driver.Seen.back(), IRP_MJ_CLOSE);
  });
}

TEST(DeviceFile, NamesWhatFollowsTheDeviceOrTheFileThatItIsRelativeTo) {
  Simulate({}, [] {
    FileDriver driver;
    const std::u16string name{u'\\', u'a', u'\0', u'\xFFFF'};
    std::unique_ptr<DeviceFile> file;
    ASSERT_EQ(DeviceFile::Open(driver.Device, name, nullptr, file), STATUS_SUCCESS);
    EXPECT_EQ(driver.Name, name);
    EXPECT_EQ(driver.Related, nullptr);
    const PFILE_OBJECT first = driver.File;
    std::unique_ptr<DeviceFile> relative;
    ASSERT_EQ(DeviceFile::Open(driver.Device, u"pin", file.get(), relative), STATUS_SUCCESS);
    EXPECT_EQ(driver.Name, u"pin");
    EXPECT_EQ(driver.Related, first);
    // The related file is set during the opening only.
    EXPECT_EQ(driver.File->RelatedFileObject, nullptr);
    file.reset();
    ULONG_PTR information = 0;
    EXPECT_EQ(relative->Control(2, {}, information), STATUS_SUCCESS);
  });
}

TEST(DeviceFile, AnswersTwoThreadsAtOnce) {
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    Simulate({.Seed = seed}, [] {
      FileDriver driver;
      const std::unique_ptr<DeviceFile> file = OpenFile(driver);
      const auto ask = [&file] {
        for (int i = 0; i < 10; ++i) {
          ULONG_PTR information = 0;
          EXPECT_EQ(file->Control(2, {}, information), STATUS_SUCCESS);
          EXPECT_EQ(information, 5U);
        }
      };
      TestThread other(ask);
      ask();
    });
  }
}

TEST(DeviceFile, CancelsARequestThatItsSenderLetsGoOf) {
  Simulate({}, [] {
    FileDriver driver;
    const std::unique_ptr<DeviceFile> file = OpenFile(driver);
    std::unique_ptr<DeviceRequest> request = file->BeginControl(1, {});
    EXPECT_EQ(KeReadStateEvent(request->Event()), 0);
    request.reset();
    EXPECT_EQ(driver.Seen.back(), IRP_MJ_DEVICE_CONTROL);
  });
}

TEST(DeviceFile, GivesStatusAndInformationOfAControlRequest) {
  Simulate({}, [] {
    FileDriver driver;
    const std::unique_ptr<DeviceFile> file = OpenFile(driver);
    ULONG_PTR information = 0;
    EXPECT_EQ(file->Control(2, {}, information), STATUS_SUCCESS);
    EXPECT_EQ(information, 5U);
  });
}

TEST(DeviceFile, IsWhatItsHandleStandsForUntilTheLastReferenceGoes) {
  Simulate({}, [] {
    FileDriver driver;
    std::unique_ptr<DeviceFile> file = OpenFile(driver);
    PVOID object = nullptr;
    ASSERT_EQ(ObReferenceObjectByHandle(file->Handle(), 0, nullptr, KernelMode, &object, nullptr),
              STATUS_SUCCESS);
    EXPECT_EQ(static_cast<PFILE_OBJECT>(object)->DeviceObject, driver.Device);
    file.reset();
    EXPECT_EQ(driver.Seen.back(), IRP_MJ_CLEANUP);
    ObDereferenceObject(object);
    EXPECT_EQ(driver.Seen.back(), IRP_MJ_CLOSE);
  });
}

TEST(DeviceFile, ClosesUnderAnExceptionOfItsApplication) {
  Simulate({}, [] {
    FileDriver driver;
    try {
      const std::unique_ptr<DeviceFile> file = OpenFile(driver);
      throw std::runtime_error("the application gives up");
    } catch (const std::runtime_error&) {
    }
    EXPECT_EQ(driver.Seen.back(), IRP_MJ_CLOSE);
    EXPECT_EQ(OpenFileCount(), 0U);
  });
}

}  // namespace
}  // namespace lidcam::host

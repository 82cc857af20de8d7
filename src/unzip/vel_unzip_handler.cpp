#include "unzip/reader_core.h"
#include "velzip/VelUnzipHandler.h"

namespace Vel {
namespace {

const velzip::ReaderTraits kTraits = {"VelUnzipHandler", velzip::LogRouting::kArchive,
                                      velzip::decodeLzmaContent};

}  // namespace

VelUnzipHandler::VelUnzipHandler(const char* zipPath)
    : core_(std::make_unique<velzip::ReaderCore>(kTraits, zipPath)) {}

VelUnzipHandler::~VelUnzipHandler() = default;

bool VelUnzipHandler::openZip(const char* zipPath) {
  return core_->openZip(zipPath);
}
bool VelUnzipHandler::closeZip() {
  return core_->closeZip();
}

void VelUnzipHandler::setLogger(void* logger) {
  core_->setLogger(logger);
}
void VelUnzipHandler::setFileOpenOption(bool option) {
  core_->setFileOpenOption(option);
}
void VelUnzipHandler::setUnzipPassword(const char* password) {
  core_->setUnzipPassword(password);
}
void VelUnzipHandler::setCallback(ZLibCallback fn, void* userData) {
  core_->setCallback(fn, userData);
}
bool VelUnzipHandler::setOutputFolder(const char* folder) {
  return core_->setOutputFolder(folder);
}

unsigned long VelUnzipHandler::getFileCount() {
  return core_->getFileCount();
}
bool VelUnzipHandler::gotoFirstFile(const char* extension) {
  return core_->gotoFirstFile(extension);
}
bool VelUnzipHandler::gotoNextFile(const char* extension) {
  return core_->gotoNextFile(extension);
}
bool VelUnzipHandler::gotoFile(int index) {
  return core_->gotoFile(index);
}
bool VelUnzipHandler::gotoFile(const char* name, bool matchBaseName) {
  return core_->gotoFile(name, matchBaseName);
}
bool VelUnzipHandler::getFileInfo(UZ_FileInfo& info) {
  return core_->getFileInfo(info);
}
bool VelUnzipHandler::getFileInfo(int index, UZ_FileInfo& info) {
  return core_->getFileInfo(index, info);
}
bool VelUnzipHandler::getEntryInfo(UZ_EntryInfo& info, bool withLinkTarget) {
  return core_->getEntryInfo(info, withLinkTarget);
}
bool VelUnzipHandler::testFile(std::string& why) {
  return core_->testFile(why);
}
unsigned long long VelUnzipHandler::getUnzipSize() {
  return core_->getUnzipSize();
}

long long VelUnzipHandler::GetUnzipSize(const char* zipPath) {
  VelUnzipHandler reader(zipPath);
  return static_cast<long long>(reader.getUnzipSize());
}

bool VelUnzipHandler::unzipFile(const char* destFolder, bool junkPaths, unsigned long mode) {
  return core_->unzipFile(destFolder, junkPaths, mode);
}
bool VelUnzipHandler::unzipFile(int index, const char* destFolder, bool junkPaths,
                                unsigned long mode) {
  return core_->unzipFile(index, destFolder, junkPaths, mode);
}
bool VelUnzipHandler::createFilePath(const char* path) {
  return core_->createFilePath(path);
}
bool VelUnzipHandler::setFileModTime(const char* path, unsigned long dosDate) {
  return core_->setFileModTime(path, dosDate);
}
void VelUnzipHandler::setKeepSetIdBits(bool keep) {
  core_->setKeepSetIdBits(keep);
}
void VelUnzipHandler::setThreadCount(unsigned threads) {
  core_->setThreadCount(threads);
}

void VelUnzipHandler::setEntryFilter(UZ_EntryFilter filter, void* userData) {
  core_->setEntryFilter(filter, userData);
}

bool VelUnzipHandler::createFolder(const char* path) {
  return core_->createFolder(path);
}
bool VelUnzipHandler::unzipTo(const char* destFolder, bool junkPaths, unsigned long mode) {
  return core_->unzipTo(destFolder, junkPaths, mode);
}
bool VelUnzipHandler::unzip(bool junkPaths) {
  return core_->unzip(junkPaths);
}
bool VelUnzipHandler::unzip(const char* zipPath, const char* destFolder, bool junkPaths,
                            unsigned long mode) {
  return core_->unzip(zipPath, destFolder, junkPaths, mode);
}

}  // namespace Vel

#include "unzip/reader_core.h"
#include "velzip/UnzipHandler.h"

namespace {

const velzip::ReaderTraits kTraits = {"UnzipHandler", velzip::LogRouting::kUtility,
                                      velzip::copyContent};

}  // namespace

UnzipHandler::UnzipHandler(const char* zipPath)
    : core_(std::make_unique<velzip::ReaderCore>(kTraits, zipPath)) {}

UnzipHandler::~UnzipHandler() = default;

bool UnzipHandler::openZip(const char* zipPath) {
  return core_->openZip(zipPath);
}
bool UnzipHandler::closeZip() {
  return core_->closeZip();
}

void UnzipHandler::setLogger(void* logger) {
  core_->setLogger(logger);
}
void UnzipHandler::setFileOpenOption(bool option) {
  core_->setFileOpenOption(option);
}
void UnzipHandler::setUnzipPassword(const char* password) {
  core_->setUnzipPassword(password);
}
void UnzipHandler::setCallback(ZLibCallback fn, void* userData) {
  core_->setCallback(fn, userData);
}
bool UnzipHandler::setOutputFolder(const char* folder) {
  return core_->setOutputFolder(folder);
}

unsigned long UnzipHandler::getFileCount() {
  return core_->getFileCount();
}
bool UnzipHandler::gotoFirstFile(const char* extension) {
  return core_->gotoFirstFile(extension);
}
bool UnzipHandler::gotoNextFile(const char* extension) {
  return core_->gotoNextFile(extension);
}
bool UnzipHandler::gotoFile(int index) {
  return core_->gotoFile(index);
}
bool UnzipHandler::gotoFile(const char* name, bool matchBaseName) {
  return core_->gotoFile(name, matchBaseName);
}
bool UnzipHandler::getFileInfo(UZ_FileInfo& info) {
  return core_->getFileInfo(info);
}
bool UnzipHandler::getFileInfo(int index, UZ_FileInfo& info) {
  return core_->getFileInfo(index, info);
}
bool UnzipHandler::getEntryInfo(UZ_EntryInfo& info, bool withLinkTarget) {
  return core_->getEntryInfo(info, withLinkTarget);
}
bool UnzipHandler::testFile(std::string& why) {
  return core_->testFile(why);
}
unsigned long long UnzipHandler::getUnzipSize() {
  return core_->getUnzipSize();
}

long long UnzipHandler::GetUnzipSize(const char* zipPath) {
  UnzipHandler reader(zipPath);
  return static_cast<long long>(reader.getUnzipSize());
}

bool UnzipHandler::unzipFile(const char* destFolder, bool junkPaths, unsigned long mode) {
  return core_->unzipFile(destFolder, junkPaths, mode);
}
bool UnzipHandler::unzipFile(int index, const char* destFolder, bool junkPaths,
                             unsigned long mode) {
  return core_->unzipFile(index, destFolder, junkPaths, mode);
}
bool UnzipHandler::createFilePath(const char* path) {
  return core_->createFilePath(path);
}
bool UnzipHandler::setFileModTime(const char* path, unsigned long dosDate) {
  return core_->setFileModTime(path, dosDate);
}
void UnzipHandler::setKeepSetIdBits(bool keep) {
  core_->setKeepSetIdBits(keep);
}
void UnzipHandler::setThreadCount(unsigned threads) {
  core_->setThreadCount(threads);
}

void UnzipHandler::setEntryFilter(UZ_EntryFilter filter, void* userData) {
  core_->setEntryFilter(filter, userData);
}

bool UnzipHandler::createFolder(const char* path) {
  return core_->createFolder(path);
}
bool UnzipHandler::unzipTo(const char* destFolder, bool junkPaths, unsigned long mode) {
  return core_->unzipTo(destFolder, junkPaths, mode);
}
bool UnzipHandler::unzip(bool junkPaths) {
  return core_->unzip(junkPaths);
}
bool UnzipHandler::unzip(const char* zipPath, const char* destFolder, bool junkPaths,
                         unsigned long mode) {
  return core_->unzip(zipPath, destFolder, junkPaths, mode);
}

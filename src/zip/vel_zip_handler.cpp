#include <memory>

#include "velzip/VelZipHandler.h"
#include "zip/zip_writer.h"

namespace Vel {

VelZipHandler::VelZipHandler(const char* zipPath, const char* baseDir, bool append)
    : writer_(std::make_unique<velzip::ZipWriter>(velzip::lzmaWriterFormat())) {
  if (zipPath != nullptr) writer_->open(zipPath, baseDir, append);
}

VelZipHandler::~VelZipHandler() = default;

bool VelZipHandler::openZip(const char* zipPath, const char* baseDir, bool append) {
  return writer_->open(zipPath, baseDir, append);
}

bool VelZipHandler::closeZip() {
  return writer_->close();
}

bool VelZipHandler::discardZip() {
  return writer_->discard();
}

void VelZipHandler::setCompressionLevel(int level) {
  writer_->setLevel(level);
}

void VelZipHandler::setCompanionPolicy(CompanionPolicy policy) {
  writer_->setCompanionPolicy(policy);
}

void VelZipHandler::setThreadCount(unsigned threads) {
  writer_->setThreadCount(threads);
}

void VelZipHandler::setWalkFilter(Z_WalkFilter filter, void* userData) {
  writer_->setWalkFilter(filter, userData);
}

const char* VelZipHandler::lastError() const {
  return writer_->lastError();
}

bool VelZipHandler::addFileToZip(const char* path, const char* entryName, bool flatten) {
  return writer_->addFile(path, entryName, flatten);
}

bool VelZipHandler::addFolderToZip(const char* path, bool flatten, bool addRootFolder) {
  return writer_->addFolder(path, flatten, addRootFolder);
}

bool VelZipHandler::addResourceForkToZip(const char* entryName, const char* path) {
  return writer_->addResourceFork(entryName, path);
}

void VelZipHandler::setLogger(void* logger) {
  writer_->setLogger(logger);
}

void VelZipHandler::setCallback(ZLibCallback fn, void* userData) {
  writer_->setCallback(fn, userData);
}

void VelZipHandler::prepareSourcePath(char* path) {
  writer_->prepareSourcePath(path);
}

bool VelZipHandler::ZipFile(const char* path) {
  return velzip::zipSingleFile(velzip::lzmaWriterFormat(), path);
}

bool VelZipHandler::GetFolderInfo(const char* path, Z_FileInfo& info) {
  return velzip::ZipWriter::folderInfo(path, info);
}

bool VelZipHandler::ZipFolder(const char* path, bool flatten) {
  return velzip::zipFolderBeside(velzip::lzmaWriterFormat(), path, flatten);
}

bool VelZipHandler::ZipFolder(const char* path, const char* zipPath, bool flatten) {
  return velzip::zipFolderInto(velzip::lzmaWriterFormat(), path, zipPath, flatten);
}

bool VelZipHandler::GZipFile(const std::string& path) {
  return velzip::gzipFile(path);
}

}  // namespace Vel

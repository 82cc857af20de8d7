#include <memory>

#include "velzip/ZipHandler.h"
#include "zip/zip_writer.h"

ZipHandler::ZipHandler(const char* zipPath, const char* baseDir, bool append)
    : writer_(std::make_unique<velzip::ZipWriter>(velzip::deflateWriterFormat())) {
  if (zipPath != nullptr) writer_->open(zipPath, baseDir, append);
}

ZipHandler::~ZipHandler() = default;

bool ZipHandler::openZip(const char* zipPath, const char* baseDir, bool append) {
  return writer_->open(zipPath, baseDir, append);
}

bool ZipHandler::closeZip() {
  return writer_->close();
}

bool ZipHandler::discardZip() {
  return writer_->discard();
}

void ZipHandler::setCompressionLevel(int level) {
  writer_->setLevel(level);
}

void ZipHandler::setCompanionPolicy(CompanionPolicy policy) {
  writer_->setCompanionPolicy(policy);
}

void ZipHandler::setThreadCount(unsigned threads) {
  writer_->setThreadCount(threads);
}

void ZipHandler::setWalkFilter(Z_WalkFilter filter, void* userData) {
  writer_->setWalkFilter(filter, userData);
}

const char* ZipHandler::lastError() const {
  return writer_->lastError();
}

bool ZipHandler::addFileToZip(const char* path, const char* entryName, bool flatten) {
  return writer_->addFile(path, entryName, flatten);
}

bool ZipHandler::addFolderToZip(const char* path, bool flatten, bool addRootFolder) {
  return writer_->addFolder(path, flatten, addRootFolder);
}

bool ZipHandler::addResourceForkToZip(const char* entryName, const char* path) {
  return writer_->addResourceFork(entryName, path);
}

void ZipHandler::setLogger(void* logger) {
  writer_->setLogger(logger);
}

void ZipHandler::setCallback(ZLibCallback fn, void* userData) {
  writer_->setCallback(fn, userData);
}

void ZipHandler::prepareSourcePath(char* path) {
  writer_->prepareSourcePath(path);
}

bool ZipHandler::ZipFile(const char* path) {
  return velzip::zipSingleFile(velzip::deflateWriterFormat(), path);
}

bool ZipHandler::GetFolderInfo(const char* path, Z_FileInfo& info) {
  return velzip::ZipWriter::folderInfo(path, info);
}

bool ZipHandler::ZipFolder(const char* path, bool flatten) {
  return velzip::zipFolderBeside(velzip::deflateWriterFormat(), path, flatten);
}

bool ZipHandler::GZipFile(const std::string& path) {
  return velzip::gzipFile(path);
}

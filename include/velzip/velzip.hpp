// velzip: every public header.
#ifndef VELZIP_VELZIP_HPP
#define VELZIP_VELZIP_HPP

#include "velzip/FileUtils.h"
#include "velzip/StringUtils.h"
#include "velzip/UZ_FileInfo.h"
#include "velzip/UnzipHandler.h"
#include "velzip/VelLzmaHelper.h"
#include "velzip/VelUnzipHandler.h"
#include "velzip/VelZipHandler.h"
#include "velzip/ZipHandler.h"
#include "velzip/callbacks.h"
#include "velzip/log.h"
#include "velzip/velzip.h"

#endif  // VELZIP_VELZIP_HPP

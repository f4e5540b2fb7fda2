/* lumivantor: HDR merge, tone mapping, fusion and image files. Includes every family. */
#ifndef LUMIVANTOR_H
#define LUMIVANTOR_H

#include "frame.h"
#include "ghost.h"
#include "fileio.h"
#include "fusion.h"
#include "merge.h"
#include "metadata.h"
#include "pyramid.h"
#include "tonemap.h"
#include "geometry.h"
#include "finish.h"

#endif

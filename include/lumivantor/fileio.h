/*
 * lumivantor image files: Radiance RGBE (and later float TIFF, PSD, BMP), with the
 * records the file inspectors and writers share.
 */
#ifndef LUMIVANTOR_FILEIO_H
#define LUMIVANTOR_FILEIO_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "frame.h"

LV_EXTERN_C_BEGIN

/* Capture metadata in the rational form that the Radiance writer takes. */
typedef struct MetadataBuf {
    int32_t shutterNum, shutterDen;   /* exposure time */
    int32_t apertureNum, apertureDen; /* f-number */
    int32_t unused4;
    int32_t iso;
    int32_t descriptionKind;
    int32_t colorProfile; /* -1 none, 0 sRGB, 1 Adobe RGB, 2 ProPhoto RGB */
    int32_t unused8, unused9;
    int32_t focalNum, focalDen;
    int32_t focal35mm;
    int32_t focalPlaneXResNum, focalPlaneXResDen;
    int32_t focalPlaneResUnit;
    int32_t extraWords[5]; /* carried over from the EXIF record */
    int32_t extraFlags[2];
    char camera[64];
    char captureDate[20];
} MetadataBuf;

/* Twelve slots filled by the file inspectors; a slot's meaning depends on the format. */
typedef struct ImageFileInfo {
    int32_t width;
    int32_t height;
    int32_t slot2; /* bits per sample, file size or samples a pixel */
    int32_t slot3;
    int32_t slot4;
    int32_t slot5;
    int32_t profileLength;
    int32_t slot7;
    int32_t slot8;
    int32_t slot9;
    int32_t slot10;
    int32_t slot11;
} ImageFileInfo;

LV_EXTERN_C_END

#endif

/*
 * qzkernel.h - umbrella header of the qzkernel library: includes the
 * exported interface of every family.
 */
#ifndef QZKERNEL_H
#define QZKERNEL_H

#include "qz/qzdefs.h"
#include "qz/qzresult.h"
#include "qz/win32compat.h"
#include "qz/qzkernel.h"
#include "qz/qzlang.h"
#include "qz/qzlist.h"
#include "qz/qzqueue.h"
#include "qz/qzwaveformat.h"
#include "qz/riff.h"
#include "qz/riff64.h"
#include "qz/qzerror.h"
#include "qz/qzlog.h"
#include "qz/mriff.h"
#include "qz/iff.h"
#include "qz/qzsmpte.h"
#include "qz/qzxml.h"
#include "qz/qzzip.h"
#include "qz/qzexif.h"

#endif

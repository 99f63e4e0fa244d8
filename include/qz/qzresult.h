/*
 * qzresult.h - every result code of the kernel as a named constant.
 *
 * A result code is a 32-bit HRESULT: bit 31 is the failure bit, bits 16-26
 * the facility, the low 16 bits the code. Any non-negative value is success;
 * test with SUCCEEDED()/FAILED(), never against zero alone, because some
 * results are informational successes (QZS_...).
 *
 * The kernel's own codes lie in the interface facility (4) from 0xE000 up:
 * failures QZE_... (0x8004E000-0x8004E18A) and informational successes
 * QZS_... (0x0004E000-0x0004E019). Codes whose meaning belongs to families
 * outside this library keep a name made of their number.
 */
#ifndef QZ_QZRESULT_H
#define QZ_QZRESULT_H

#include "qz/qzdefs.h"

/* ---- common Windows codes (as <winerror.h> defines them) ------------------ */

#ifndef S_OK
#define S_OK ((HRESULT)0x00000000L)
#endif
#ifndef S_FALSE
#define S_FALSE ((HRESULT)0x00000001L)
#endif
#ifndef E_NOTIMPL
#define E_NOTIMPL ((HRESULT)0x80004001L)
#endif
#ifndef E_NOINTERFACE
#define E_NOINTERFACE ((HRESULT)0x80004002L)
#endif
#ifndef E_POINTER
#define E_POINTER ((HRESULT)0x80004003L)
#endif
#ifndef E_FAIL
#define E_FAIL ((HRESULT)0x80004005L)
#endif
#ifndef E_UNEXPECTED
#define E_UNEXPECTED ((HRESULT)0x8000FFFFL)
#endif
#ifndef E_ACCESSDENIED
#define E_ACCESSDENIED ((HRESULT)0x80070005L)
#endif
#ifndef E_HANDLE
#define E_HANDLE ((HRESULT)0x80070006L)
#endif
#ifndef E_OUTOFMEMORY
#define E_OUTOFMEMORY ((HRESULT)0x8007000EL)
#endif
#ifndef E_INVALIDARG
#define E_INVALIDARG ((HRESULT)0x80070057L)
#endif
#ifndef REGDB_E_CLASSNOTREG
#define REGDB_E_CLASSNOTREG ((HRESULT)0x80040154L)
#endif
#ifndef STG_E_PATHNOTFOUND
#define STG_E_PATHNOTFOUND ((HRESULT)0x80030003L)
#endif
#ifndef STG_E_ACCESSDENIED
#define STG_E_ACCESSDENIED ((HRESULT)0x80030005L)
#endif
#ifndef STG_E_INVALIDPOINTER
#define STG_E_INVALIDPOINTER ((HRESULT)0x80030009L)
#endif
#ifndef STG_E_WRITEFAULT
#define STG_E_WRITEFAULT ((HRESULT)0x8003001DL)
#endif
#ifndef STG_E_DISKISWRITEPROTECTED
#define STG_E_DISKISWRITEPROTECTED ((HRESULT)0x80030013L)
#endif
#ifndef STG_E_MEDIUMFULL
#define STG_E_MEDIUMFULL ((HRESULT)0x80030070L)
#endif
#ifndef STG_E_INVALIDHEADER
#define STG_E_INVALIDHEADER ((HRESULT)0x800300FBL)
#endif

/* Further Windows and multimedia codes that carry a kernel message. */
#define QZ_HR_80030103 ((HRESULT)0x80030103L) /* a storage file that cannot be read */
#define QZ_HR_80040037 ((HRESULT)0x80040037L)
#define QZ_HR_80040964 ((HRESULT)0x80040964L)
#define QZ_HR_INVALID_DRIVE ((HRESULT)0x800404B0L)
#define QZ_HR_800404E0 ((HRESULT)0x800404E0L)
#define QZ_HR_END_OF_FILE ((HRESULT)0x800A0026L)
#define QZ_NS_E_C00D002B ((HRESULT)0xC00D002BL)
#define QZ_NS_E_C00D0BC2 ((HRESULT)0xC00D0BC2L)
#define QZ_NS_E_C00D0BC3 ((HRESULT)0xC00D0BC3L)
#define QZ_NS_E_C00D0BC4 ((HRESULT)0xC00D0BC4L)
#define QZ_NS_E_C00D0BC5 ((HRESULT)0xC00D0BC5L)
#define QZ_NS_E_C00D0BC6 ((HRESULT)0xC00D0BC6L)
#define QZ_NS_E_C00D0BCF ((HRESULT)0xC00D0BCFL)

/* ---- kernel failures ------------------------------------------------------ */

#define QZE_UNSUPPORTED_MEDIA_TYPE       ((HRESULT)0x8004E000L)
#define QZE_NOT_ENABLED_FOR_DEVICE       ((HRESULT)0x8004E001L)
#define QZE_DISK_FULL                    ((HRESULT)0x8004E002L)
#define QZE_RESOURCES_LOW                ((HRESULT)0x8004E003L)
#define QZE_RESOURCE_ALLOCATED           ((HRESULT)0x8004E004L)
#define QZE_SYSTEM_BUSY                  ((HRESULT)0x8004E005L)
#define QZE_FILE_CREATE                  ((HRESULT)0x8004E006L)
#define QZE_FILE_OPEN                    ((HRESULT)0x8004E007L)
#define QZE_FILE_READ                    ((HRESULT)0x8004E008L)
#define QZE_FILE_WRITE                   ((HRESULT)0x8004E009L)
#define QZE_NOT_FOUND                    ((HRESULT)0x8004E00AL)
#define QZE_CORRUPT_OR_UNKNOWN           ((HRESULT)0x8004E00BL)
#define QZE_CANCELLED                    ((HRESULT)0x8004E00CL)
#define QZE_BAD_FILE_NAME                ((HRESULT)0x8004E00DL)
#define QZE_RESOURCE_MISSING             ((HRESULT)0x8004E00EL)
#define QZE_WINDOW_CREATE                ((HRESULT)0x8004E00FL)
#define QZE_DRIVER_OPEN                  ((HRESULT)0x8004E010L)
#define QZE_CODEC_OPEN                   ((HRESULT)0x8004E011L)
#define QZE_CODEC_CONVERT                ((HRESULT)0x8004E012L)
#define QZE_DEVICE_UNAVAILABLE           ((HRESULT)0x8004E015L)
#define QZE_UNSUPPORTED_FORMAT           ((HRESULT)0x8004E016L)
#define QZE_EXCEPTION                    ((HRESULT)0x8004E017L)
#define QZE_CODE_019                     ((HRESULT)0x8004E019L)
#define QZE_CODE_01A                     ((HRESULT)0x8004E01AL)
#define QZE_INIT_FAILED                  ((HRESULT)0x8004E01BL)
#define QZE_UNSUPPORTED_VERSION          ((HRESULT)0x8004E01CL)
#define QZE_CODE_01D                     ((HRESULT)0x8004E01DL)
#define QZE_CODE_01E                     ((HRESULT)0x8004E01EL)
#define QZE_CODE_01F                     ((HRESULT)0x8004E01FL)
#define QZE_CODE_020                     ((HRESULT)0x8004E020L)
#define QZE_CODE_023                     ((HRESULT)0x8004E023L)
#define QZE_CODE_024                     ((HRESULT)0x8004E024L)
#define QZE_CODE_025                     ((HRESULT)0x8004E025L)
#define QZE_TOO_MANY_OPEN_FILES          ((HRESULT)0x8004E026L)
#define QZE_CODE_028                     ((HRESULT)0x8004E028L)
#define QZE_CODE_02A                     ((HRESULT)0x8004E02AL)
#define QZE_CODE_02B                     ((HRESULT)0x8004E02BL)
#define QZE_CODE_02E                     ((HRESULT)0x8004E02EL)
#define QZE_CODE_02F                     ((HRESULT)0x8004E02FL)
#define QZE_CODE_030                     ((HRESULT)0x8004E030L)
#define QZE_CODE_031                     ((HRESULT)0x8004E031L)
#define QZE_FILE_EXISTS                  ((HRESULT)0x8004E032L)
#define QZE_UNSUPPORTED_FILE_TYPE        ((HRESULT)0x8004E033L)
#define QZE_CODE_034                     ((HRESULT)0x8004E034L)
#define QZE_CODE_035                     ((HRESULT)0x8004E035L)
#define QZE_STREAM_OPEN                  ((HRESULT)0x8004E036L)
#define QZE_STREAM_CREATE                ((HRESULT)0x8004E037L)
#define QZE_STREAM_READ                  ((HRESULT)0x8004E038L)
#define QZE_STREAM_WRITE                 ((HRESULT)0x8004E039L)
#define QZE_SIZE_LIMIT                   ((HRESULT)0x8004E03AL)
#define QZE_CODE_03B                     ((HRESULT)0x8004E03BL)
#define QZE_BUFFER_TOO_SMALL             ((HRESULT)0x8004E03CL)
#define QZE_CODE_03D                     ((HRESULT)0x8004E03DL)
#define QZE_CODE_03E                     ((HRESULT)0x8004E03EL)
#define QZE_CODE_045                     ((HRESULT)0x8004E045L)
#define QZE_PLUGIN_NOT_INITIALIZED       ((HRESULT)0x8004E047L)
#define QZE_CODE_048                     ((HRESULT)0x8004E048L)
#define QZE_CODE_050                     ((HRESULT)0x8004E050L)
#define QZE_CODE_051                     ((HRESULT)0x8004E051L)
#define QZE_CODE_054                     ((HRESULT)0x8004E054L)
#define QZE_CODE_055                     ((HRESULT)0x8004E055L)
#define QZE_SHARING_VIOLATION            ((HRESULT)0x8004E05AL)
#define QZE_CODE_05B                     ((HRESULT)0x8004E05BL)
#define QZE_CODE_05C                     ((HRESULT)0x8004E05CL)
#define QZE_CODE_05D                     ((HRESULT)0x8004E05DL)
#define QZE_CODE_05E                     ((HRESULT)0x8004E05EL)
#define QZE_CODE_05F                     ((HRESULT)0x8004E05FL)
#define QZE_CODE_060                     ((HRESULT)0x8004E060L)
#define QZE_CODE_061                     ((HRESULT)0x8004E061L)
#define QZE_CODE_063                     ((HRESULT)0x8004E063L)
#define QZE_CODE_064                     ((HRESULT)0x8004E064L)
#define QZE_NO_RIFF_HEADER               ((HRESULT)0x8004E080L)
#define QZE_NO_LIST_HEADER               ((HRESULT)0x8004E081L)
#define QZE_ZERO_LENGTH_CHUNK            ((HRESULT)0x8004E082L)
#define QZE_MISALIGNED_CHUNK             ((HRESULT)0x8004E083L)
#define QZE_CODE_084                     ((HRESULT)0x8004E084L)
#define QZE_CODE_085                     ((HRESULT)0x8004E085L)
#define QZE_CODE_086                     ((HRESULT)0x8004E086L)
#define QZE_CODE_087                     ((HRESULT)0x8004E087L)
#define QZE_CODE_088                     ((HRESULT)0x8004E088L)
#define QZE_CODE_089                     ((HRESULT)0x8004E089L)
#define QZE_CODE_08A                     ((HRESULT)0x8004E08AL)
#define QZE_CODE_0A0                     ((HRESULT)0x8004E0A0L)
#define QZE_CODE_0A1                     ((HRESULT)0x8004E0A1L)
#define QZE_CODE_0A2                     ((HRESULT)0x8004E0A2L)
#define QZE_CODE_0A3                     ((HRESULT)0x8004E0A3L)
#define QZE_CODE_0A5                     ((HRESULT)0x8004E0A5L)
#define QZE_CODE_0A6                     ((HRESULT)0x8004E0A6L)
#define QZE_CODE_0A8                     ((HRESULT)0x8004E0A8L)
#define QZE_DUPLICATE_ITEM               ((HRESULT)0x8004E0A9L)
#define QZE_CODE_0AA                     ((HRESULT)0x8004E0AAL)
#define QZE_CODE_0AB                     ((HRESULT)0x8004E0ABL)
#define QZE_CODE_0AC                     ((HRESULT)0x8004E0ACL)
#define QZE_CODE_0AE                     ((HRESULT)0x8004E0AEL)
#define QZE_CODE_0AF                     ((HRESULT)0x8004E0AFL)
#define QZE_CODE_0B4                     ((HRESULT)0x8004E0B4L)
#define QZE_CODE_0B5                     ((HRESULT)0x8004E0B5L)
#define QZE_CODE_0B6                     ((HRESULT)0x8004E0B6L)
#define QZE_CODE_0C2                     ((HRESULT)0x8004E0C2L)
#define QZE_CODE_0C5                     ((HRESULT)0x8004E0C5L)
#define QZE_CODE_0C9                     ((HRESULT)0x8004E0C9L)
#define QZE_CODE_0D4                     ((HRESULT)0x8004E0D4L)
#define QZE_CODE_0EC                     ((HRESULT)0x8004E0ECL)
#define QZE_CODE_0ED                     ((HRESULT)0x8004E0EDL)
#define QZE_CODE_0EE                     ((HRESULT)0x8004E0EEL)
#define QZE_CODE_0EF                     ((HRESULT)0x8004E0EFL)
#define QZE_CODE_109                     ((HRESULT)0x8004E109L)
#define QZE_CODE_142                     ((HRESULT)0x8004E142L)
#define QZE_CODE_15F                     ((HRESULT)0x8004E15FL)
#define QZE_CODE_161                     ((HRESULT)0x8004E161L)
#define QZE_CODE_162                     ((HRESULT)0x8004E162L)
#define QZE_CODE_163                     ((HRESULT)0x8004E163L)
#define QZE_CODE_164                     ((HRESULT)0x8004E164L)
#define QZE_CODE_165                     ((HRESULT)0x8004E165L)
#define QZE_CODE_166                     ((HRESULT)0x8004E166L)
#define QZE_CODE_16D                     ((HRESULT)0x8004E16DL)
#define QZE_CODE_16E                     ((HRESULT)0x8004E16EL)
#define QZE_CODE_16F                     ((HRESULT)0x8004E16FL)
#define QZE_ALREADY_EXISTS               ((HRESULT)0x8004E170L)
#define QZE_CODE_171                     ((HRESULT)0x8004E171L)
#define QZE_CODE_172                     ((HRESULT)0x8004E172L)
#define QZE_CODE_173                     ((HRESULT)0x8004E173L)
#define QZE_CODE_174                     ((HRESULT)0x8004E174L)
#define QZE_RECORDER_17C                 ((HRESULT)0x8004E17CL)
#define QZE_RECORDER_17D                 ((HRESULT)0x8004E17DL)
#define QZE_RECORDER_17E                 ((HRESULT)0x8004E17EL)
#define QZE_RECORDER_17F                 ((HRESULT)0x8004E17FL)
#define QZE_RECORDER_180                 ((HRESULT)0x8004E180L)
#define QZE_RECORDER_181                 ((HRESULT)0x8004E181L)
#define QZE_RECORDER_182                 ((HRESULT)0x8004E182L)
#define QZE_RECORDER_183                 ((HRESULT)0x8004E183L)
#define QZE_RECORDER_184                 ((HRESULT)0x8004E184L)
#define QZE_CODE_186                     ((HRESULT)0x8004E186L)
#define QZE_CODE_189                     ((HRESULT)0x8004E189L)
#define QZE_CODE_18A                     ((HRESULT)0x8004E18AL)

/* ---- kernel informational successes -------------------------------------- */

#define QZS_RECOVERED                    ((HRESULT)0x0004E000L)
#define QZS_CODE_003                     ((HRESULT)0x0004E003L)
#define QZS_NOT_CONFIGURED               ((HRESULT)0x0004E005L)
#define QZS_CODE_006                     ((HRESULT)0x0004E006L)
#define QZS_CODE_007                     ((HRESULT)0x0004E007L)
#define QZS_CODE_008                     ((HRESULT)0x0004E008L)
#define QZS_CODE_009                     ((HRESULT)0x0004E009L)
#define QZS_CODE_00A                     ((HRESULT)0x0004E00AL)
#define QZS_CODE_00B                     ((HRESULT)0x0004E00BL)
#define QZS_CODE_00C                     ((HRESULT)0x0004E00CL)
#define QZS_CODE_00E                     ((HRESULT)0x0004E00EL)
#define QZS_CODE_010                     ((HRESULT)0x0004E010L)
#define QZS_CODE_015                     ((HRESULT)0x0004E015L)
#define QZS_CODE_018                     ((HRESULT)0x0004E018L)
#define QZS_CODE_019                     ((HRESULT)0x0004E019L)

#endif /* QZ_QZRESULT_H */

// The macros of <sys/sysctl.h>, <sys/proc.h>, <sys/types.h> and <AssertMacros.h> on macOS. They
// come after the standard library's headers, which Apple's own are made to go with.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#define CTL_UNSPEC 0
#define CTL_KERN 1
#define CTL_VM 2
#define CTL_VFS 3
#define CTL_NET 4
#define CTL_DEBUG 5
#define CTL_HW 6
#define CTL_MACHDEP 7
#define CTL_USER 8
#define CTL_MAXID 9
#define CTL_MAXNAME 12
#define CTLTYPE 0xf
#define CTLTYPE_INT 2
#define CTLTYPE_STRING 3
#define CTLFLAG_RD 0x80000000
#define CTLFLAG_WR 0x40000000
#define KERN_OSTYPE 1
#define KERN_OSRELEASE 2
#define KERN_VERSION 4
#define KERN_MAXPROC 6
#define KERN_ARGMAX 8
#define KERN_HOSTNAME 10
#define KERN_PROC 14
#define KERN_PROCARGS 38
#define KERN_PROCARGS2 49
#define KERN_PROC_ALL 0
#define KERN_PROC_PID 1
#define KERN_PROC_PGRP 2
#define KERN_PROC_SESSION 3
#define KERN_PROC_TTY 4
#define KERN_PROC_UID 5
#define KERN_PROC_RUID 6
#define KERN_PROC_LCID 7
#define HW_MACHINE 1
#define HW_NCPU 3
#define HW_PAGESIZE 7
#define EPROC_CTTY 0x01
#define EPROC_SLEADER 0x02
#define WMESGLEN 7
#define COMAPT_MAXLOGNAME 12
#define MAXCOMLEN 16
#define MAXLOGNAME 255
#define MAXPATHLEN 1024
#define P_ADVLOCK 0x00000001
#define P_CONTROLT 0x00000002
#define P_LP64 0x00000004
#define P_NOCLDSTOP 0x00000008
#define P_PPWAIT 0x00000010
#define P_PROFIL 0x00000020
#define P_SELECT 0x00000040
#define P_CONTINUED 0x00000080
#define P_SUGID 0x00000100
#define P_SYSTEM 0x00000200
#define P_TIMEOUT 0x00000400
#define P_TRACED 0x00000800
#define P_RESV3 0x00001000
#define P_WEXIT 0x00002000
#define P_EXEC 0x00004000
#define P_OWEUPC 0x00008000
#define P_WAITED 0x00010000
#define P_NOSHLIB 0x00020000
#define P_FORCEQUOTA 0x00040000
#define P_NOCLDWAIT 0x00080000
#define P_NOREMOTEHANG 0x00100000
#define p_forw p_un.p_st1.__p_forw
#define p_back p_un.p_st1.__p_back
#define p_starttime p_un.__p_starttime
#define SIDL 1
#define SRUN 2
#define SSLEEP 3
#define SSTOP 4
#define SZOMB 5
#define major(x) ((int)((x) >> 24))
#define minor(x) ((int)((x)&0xffffff))
#define makedev(x, y) ((x) << 24 | (y))
#define howmany(x, y) (((x) + ((y)-1)) / (y))
#define roundup(x, y) ((((x) + ((y)-1)) / (y)) * (y))
#define check(assertion)
#define verify(assertion)
#define require(assertion, label)
#define NO false
#define YES true
#define nil nullptr
#define Nil nullptr
#define st_atime st_atimespec.tv_sec
#define st_mtime st_mtimespec.tv_sec
#define st_ctime st_ctimespec.tv_sec

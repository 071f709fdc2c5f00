/*
 * The library's binary interface as a C program: it fails to compile where a header changes a function's type or a
 * record's layout, fails to link where a name is not exported, and checks the globals' start values when it runs.
 */
#include <mntent.h>
#include <netinet/in.h>
#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "korvex_util.h"

#define FUNCTIONS(X)                                                                                             \
    /* simplog */                                                                                                \
    X(Simp_Log_Create, int32_t, const char *, Simp_Log **, uint32_t, uint32_t, int32_t)                          \
    X(Simp_Log_Open, int32_t, Simp_Log *, int32_t)                                                               \
    X(Simp_Log_Write, int32_t, Simp_Log *, const char *, ...)                                                    \
    X(Simp_Log_Close, int32_t, Simp_Log *)                                                                       \
    X(Simp_Log_Release, void, Simp_Log *)                                                                        \
    X(Change_Date_To_String_By_Format_Ex, int32_t, time_t, char *, int32_t, int32_t)                             \
    X(Change_Time_To_String_By_Format_Ex, int32_t, time_t, char *, int32_t, uint32_t, int32_t)                   \
    X(Log_DateTime_Format, int32_t, time_t, char *, int32_t, int32_t)                                            \
    /* miscfunc */                                                                                               \
    X(Rough_Tick, uint64_t, void)                                                                                \
    X(Tick_Diff, uint64_t, uint64_t)                                                                             \
    X(Rough_Tick_Diff, uint64_t, uint64_t)                                                                       \
    X(Sleep_MSec, void, uint32_t)                                                                                \
    X(Is_Process_Existed, int32_t, int32_t)                                                                      \
    X(Get_Program_Output, int32_t, const char *, char *, int32_t *)                                              \
    X(Get_Parent_Pid, int32_t, int32_t, int32_t *)                                                               \
    X(Get_All_Pids, int32_t, const char *, int32_t **, int32_t *)                                                \
    X(Get_Ancestry_Pid, int32_t, const char *, int32_t *)                                                        \
    X(Fenwa_Really_Unlink, int64_t, const char *)                                                                \
    X(Fenwa_Unlinkat, int32_t, int32_t, const char *, const char *, int32_t)                                     \
    X(Swap_Integer, void, int32_t *, int32_t *)                                                                  \
    X(Decimal_String_To_Integer, int32_t, const char *, int64_t *)                                               \
    X(Integer_To_Decimal_String, int32_t, char *, const int32_t *, int64_t)                                      \
    X(Clone_String, int32_t, const char *, char **, int32_t *)                                                   \
    X(Size_Unit_Conversion, int32_t, uint64_t, float *, char *, int32_t)                                         \
    X(Time_Unit_Conversion, int32_t, uint32_t, int32_t *, char *, int32_t)                                       \
    X(Str_To_Bool, int32_t, const char *, int32_t)                                                               \
    /* conffile: nodes */                                                                                        \
    X(Create_Pair_Node, int32_t, Pair_Node **, const char *, const char *)                                       \
    X(Create_Integer_Pair_Node, int32_t, Pair_Node **, const char *, int64_t)                                    \
    X(Create_Sect_Node, int32_t, Sect_Node **, const char *)                                                     \
    X(Free_Pair_Node, void, Pair_Node *)                                                                         \
    X(Free_Sect_Node, void, Sect_Node *)                                                                         \
    X(Get_Pair_String_Buffer, int32_t, const Pair_Node *, const char *, char **)                                 \
    X(Get_Pair_String_Value, int32_t, const Pair_Node *, const char *, char *, int32_t *)                        \
    X(Get_Pair_Int64_Value, int32_t, const Pair_Node *, const char *, int64_t *)                                 \
    X(Get_Pair_Int8_Value, int32_t, const Pair_Node *, const char *, int8_t *)                                   \
    X(Get_Pair_Int16_Value, int32_t, const Pair_Node *, const char *, int16_t *)                                 \
    X(Get_Pair_Int32_Value, int32_t, const Pair_Node *, const char *, int32_t *)                                 \
    X(Set_Pair_String_Value, int32_t, Pair_Node **, const char *, const char *)                                  \
    X(Set_Pair_Integer_Value, int32_t, Pair_Node **, const char *, int64_t)                                      \
    X(Get_Conf_String_Pointer, int32_t, const Sect_Node *, const char *, const char *, char **)                  \
    X(Get_Conf_String_Value, int32_t, const Sect_Node *, const char *, const char *, char *, int32_t *)          \
    X(Get_Conf_Int64_Value, int32_t, const Sect_Node *, const char *, const char *, int64_t *)                   \
    X(Get_Conf_Int8_Value, int32_t, const Sect_Node *, const char *, const char *, int8_t *)                     \
    X(Get_Conf_Int16_Value, int32_t, const Sect_Node *, const char *, const char *, int16_t *)                   \
    X(Get_Conf_Int32_Value, int32_t, const Sect_Node *, const char *, const char *, int32_t *)                   \
    X(Set_Conf_String_Value, int32_t, Sect_Node *, const char *, const char *, const char *)                     \
    X(Set_Conf_Integer_Value, int32_t, Sect_Node *, const char *, const char *, int64_t)                         \
    /* conffile: reading and writing */                                                                          \
    X(Cache_Conf_File, int32_t, const char *, char **)                                                           \
    X(Parse_Conf_Cache, int32_t, char *, Sect_Node **)                                                           \
    X(Parse_Conf_Stream, int32_t, FILE *, Sect_Node **)                                                          \
    X(Read_Conf_File, int32_t, const char *, Sect_Node **)                                                       \
    X(Write_Pair_Node, int32_t, FILE *, const Pair_Node *)                                                       \
    X(Write_Sect_Node, int32_t, FILE *, const Sect_Node *)                                                       \
    X(Write_Conf_File, int32_t, const char *, const Sect_Node *)                                                 \
    X(Update_Conf_File, int32_t, const char *, const Sect_Node *)                                                \
    /* conffile: sections and keys on files */                                                                   \
    X(Get_Conf_File_Section, int32_t, const char *, const char *, Sect_Node **)                                  \
    X(Set_Conf_File_Section, int32_t, const char *, const char *, Sect_Node *)                                   \
    X(Update_Conf_File_Section, int32_t, const char *, const char *, const Sect_Node *)                          \
    X(Get_Conf_File_String_Value, int32_t, const char *, const char *, const char *, char *, int32_t *)          \
    X(Get_Conf_File_Int64_Value, int32_t, const char *, const char *, const char *, int64_t *)                   \
    X(Get_Conf_File_Int8_Value, int32_t, const char *, const char *, const char *, int8_t *)                     \
    X(Get_Conf_File_Int16_Value, int32_t, const char *, const char *, const char *, int16_t *)                   \
    X(Get_Conf_File_Int32_Value, int32_t, const char *, const char *, const char *, int32_t *)                   \
    X(Set_Conf_File_String_Value, int32_t, const char *, const char *, const char *, const char *)               \
    X(Set_Conf_File_Integer_Value, int32_t, const char *, const char *, const char *, int64_t)                   \
    X(Set_Conf_File_Pair_Values, int32_t, const char *, const char *, const Pair_Node *)                         \
    /* fileio: lock files */                                                                                     \
    X(Get_Filename, int32_t, const char *, const char **)                                                        \
    X(Check_File_Lock, int32_t, const char *, int32_t)                                                           \
    X(Get_File_Lock, int32_t, const char *, int32_t)                                                             \
    X(Release_File_Lock, int32_t, const char *)                                                                  \
    X(Get_File_Lock_Ex, int32_t, const char *, int32_t)                                                          \
    X(Release_File_Lock_Ex, int32_t, const char *)                                                               \
    X(Open_Shared_File, int32_t, const char *, const char *, FILE **)                                            \
    X(Close_Shared_File, int32_t, const char *, FILE *)                                                          \
    /* fileio: status and whole files */                                                                         \
    X(Is_FD_Ready_To_Read, int32_t, int32_t, int32_t)                                                            \
    X(Get_FD_Path, int32_t, int32_t, char *, int32_t)                                                            \
    X(Fullpath, char *, int32_t)                                                                                 \
    X(Set_File_Time_At, int32_t, int32_t, const char *, const struct timespec *, int32_t)                        \
    X(Set_File_Modified_Time_At, int32_t, int32_t, const char *, uint32_t, uint32_t, int32_t)                    \
    X(Is_Folder, int32_t, const char *)                                                                          \
    X(Check_Folder_At, int32_t, int32_t, const char *, uint32_t *)                                               \
    X(Check_Folder, int32_t, const char *, uint32_t *)                                                           \
    X(Check_File_At, int32_t, int32_t, const char *)                                                             \
    X(Check_File, int32_t, const char *)                                                                         \
    X(Get_File_Size, int32_t, const char *, uint64_t *)                                                          \
    X(Simple_Read_File, int32_t, const char *, char *, int32_t *)                                                \
    X(Read_File_To_Buffer, int32_t, const char *, void *, int64_t *, int64_t)                                    \
    X(Write_File_From_Buffer, int32_t, const char *, const void *, int64_t *, int64_t)                           \
    /* fileio: transfer and copying */                                                                           \
    X(File_Write_Bulk, int32_t, int32_t, const void *, int64_t, uint64_t *)                                      \
    X(File_Send_Bulk, int32_t, int32_t, int32_t, int64_t, int64_t *, uint64_t *)                                 \
    X(Splice_Ext, int32_t, int32_t, int64_t *, int32_t, int64_t *, int64_t, uint32_t, int32_t, int32_t *)        \
    X(Splice_File_Data, int32_t, int32_t, int64_t *, int32_t, int64_t *, int64_t, int32_t, int32_t *, int64_t *) \
    X(Copy_File_Data, int32_t, int32_t, int64_t *, int32_t, int64_t *, int64_t, int32_t *, int64_t *)            \
    X(Copy_File_Data_MROV, int32_t, int32_t, int64_t *, int32_t, int64_t *, int64_t, int32_t *, int64_t *)       \
    X(Copy_File_At, int32_t, int32_t, const char *, int32_t, const char *, int32_t *, int64_t *)                 \
    X(Copy_File, int32_t, const char *, const char *, int32_t *, int64_t *)                                      \
    X(Copy_Symlink_At, int32_t, int32_t, const char *, int32_t, const char *)                                    \
    X(Copy_Symlink, int32_t, const char *, const char *)                                                         \
    X(Remove_File_At, int32_t, int32_t, const char *)                                                            \
    X(Remove_File, int32_t, const char *)                                                                        \
    X(Copy_Folder_At, int32_t, int32_t, const char *, int32_t, const char *)                                     \
    X(Copy_Folder, int32_t, const char *, const char *)                                                          \
    /* fileio: trees */                                                                                          \
    X(Copy_Folder_Tree_At, int32_t, int32_t, const char *, int32_t, const char *, int32_t *)                     \
    X(Copy_Folder_Tree, int32_t, const char *, const char *, int32_t *)                                          \
    X(State_Folder_Tree_At, int32_t, int32_t, const char *, Folder_Tree_State *, int32_t *)                      \
    X(State_Folder_Tree, int32_t, const char *, Folder_Tree_State *, int32_t *)                                  \
    X(Remove_Folder_Tree_At, int32_t, int32_t, const char *, int32_t *)                                          \
    X(Remove_Folder_Tree, int32_t, const char *, int32_t *)                                                      \
    /* fileio: temporary files */                                                                                \
    X(Check_Temp_Filename, int32_t, const char *)                                                                \
    X(Generate_Temp_Filename, int32_t, int32_t, const char *, char *, int32_t)                                   \
    X(Open_Unique_Temp_File_At, int32_t, int32_t, const char *, int32_t, uint32_t, int32_t, char *, int32_t *)   \
    X(Open_Unique_Temp_File, int32_t, const char *, int32_t, uint32_t, int32_t, char *, int32_t *)               \
    /* socket: addresses, TCP, local domain */                                                                   \
    X(Domain_To_IP_Addr, int32_t, const char *, char *, int32_t *)                                               \
    X(Is_IP_Localhost, int32_t, const char *)                                                                    \
    X(IPv6_Check_Subnet, int32_t, const struct in6_addr *, const struct in6_addr *, int32_t)                     \
    X(IPv6_Get_Scope_Id, int32_t, const struct in6_addr *, uint32_t *)                                           \
    X(TCP_Socket_Connect, int32_t, const char *, const char *, int32_t, int32_t, int32_t *)                      \
    X(TCP_Socket_Listen, int32_t, const char *, int32_t, int32_t, int32_t *, int32_t)                            \
    X(Domain_Sock_Set_Nonblocking, int32_t, int32_t)                                                             \
    X(Domain_Socket_Listen, int32_t, const char *, int32_t *, int32_t)                                           \
    X(Domain_Socket_Connect, int32_t, const char *, int32_t *, int32_t)                                          \
    /* socket: readiness, exact transfer, TLS */                                                                 \
    X(Is_Socket_Ready_To_Recv, int32_t, int32_t, int32_t)                                                        \
    X(Is_Socket_Ready_To_Send, int32_t, int32_t, int32_t)                                                        \
    X(Is_Any_Socket_Ready, int32_t, const int32_t *, int32_t, int32_t, int32_t *, int32_t *)                     \
    X(Exactly_Recv, int32_t, int32_t, void *, int32_t, int32_t)                                                  \
    X(Exactly_Send, int64_t, int32_t, const void *, uint64_t, uint32_t)                                          \
    X(Recv_File, int32_t, int32_t, int32_t, int64_t *, int64_t, uint64_t *)                                      \
    X(CTX_Initialize, int32_t, const char *, const char *, const char *, SSL_CTX **)                             \
    X(CTX_Destroy, void, SSL_CTX *)                                                                              \
    X(SSL_Connect_Socket, int32_t, const char *, const char *, const char *, SSL_Socket_Info *)                  \
    X(SSL_Accept_Socket, int32_t, const char *, const char *, const char *, SSL_Socket_Info *)                   \
    X(SSL_Socket_Connect, int32_t, const char *, int32_t, int32_t, const char *, const char *, const char *,     \
      SSL_Socket_Info *)                                                                                         \
    X(SSL_Socket_Destroy, void, SSL_Socket_Info *, int32_t)                                                      \
    X(SSL_Recv, int64_t, SSL_Socket_Info *, void *, uint64_t, uint32_t)                                          \
    X(SSL_Send, int64_t, SSL_Socket_Info *, const void *, uint64_t, uint32_t)                                    \
    X(Exactly_SSL_Peek, int32_t, SSL_Socket_Info *, void *, int32_t, int32_t)                                    \
    X(Exactly_SSL_Recv, int32_t, SSL_Socket_Info *, void *, int32_t, int32_t)                                    \
    X(Exactly_SSL_Recv_Ex, int32_t, SSL_Socket_Info *, void *, int32_t, int32_t, int32_t *)                      \
    X(Exactly_SSL_Send, int64_t, SSL_Socket_Info *, const void *, uint64_t, uint32_t)                            \
    /* sysinfo */                                                                                                \
    X(Scan_Mount_Info, int32_t, Mount_Info **)                                                                   \
    X(Free_Mount_Info, void, Mount_Info *)                                                                       \
    X(Scan_Share_List, int32_t, Share_Info **, int32_t *)                                                        \
    X(Release_Share_List, void, Share_Info **)                                                                   \
    X(Query_Mount_Entry_By_Device, int32_t, const char *, struct mntent **)                                      \
    X(Query_Mount_Entry_By_Path, int32_t, const char *, struct mntent **)                                        \
    X(Query_Mount_Shortcut, int32_t, const char *, char *)                                                       \
    X(Scan_Block_Device_Info, int32_t, Block_Info **)                                                            \
    X(Query_Block_Info_By_Path, int32_t, const char *, char *, char *, char *)                                   \
    X(Query_Block_Info_By_Id, int32_t, const char *, char *, char *, char *)                                     \
    X(Query_Block_Device_Info, int32_t, const char *, uint64_t *, uint32_t *, char *, char *)                    \
    X(Query_Volume_Info_BY_Path, int32_t, const char *, Volume_Info *)                                           \
    X(Query_Volume_Info_BY_Id, int32_t, const char *, Volume_Info *)                                             \
    X(Scan_Network_Interface, int32_t, Netif_Info **, int32_t *)                                                 \
    X(Free_Network_Interface, void, Netif_Info *)                                                                \
    /* tracer */                                                                                                 \
    X(Trace_Mem_Init, int32_t, void)                                                                             \
    X(Trace_Mem_Alloc, void *, size_t, void *, const char *, int32_t)                                            \
    X(Trace_Mem_Check, int32_t, void *)                                                                          \
    X(Trace_Mem_Free, void, void *, const char *, int32_t)                                                       \
    X(Trace_Mem_Usage, void, void)                                                                               \
    X(Trace_Mem_Destroy, int32_t, void)                                                                          \
    /* links */                                                                                                  \
    X(Link_Queue_Init, int32_t, Link_Queue *, int32_t, pthread_mutex_t *, pthread_cond_t *)                      \
    X(Link_Queue_Destroy, int32_t, Link_Queue *)                                                                 \
    X(Link_Queue_Reset, int32_t, Link_Queue *, int32_t)                                                          \
    X(Link_Queue_Mark, int32_t, Link_Queue *)                                                                    \
    X(Link_Queue_Get_Size, int32_t, Link_Queue *)                                                                \
    X(Link_Queue_Get_Number, int32_t, Link_Queue *)                                                              \
    X(Link_Queue_Pop_Node, int32_t, Link_Queue *, Link_Node **)                                                  \
    X(Link_Queue_Pop_Nodes, int32_t, Link_Queue *, Link_Node **)                                                 \
    X(Link_Queue_Push_Node, int32_t, Link_Queue *, Link_Node *)

#define GLOBALS(X)                                \
    X(g_ptslLog, Simp_Log *)                      \
    X(g_idLogLevel, int32_t)                      \
    X(g_bDebugOutput, int32_t)                    \
    X(g_pfError, Log_Output_Func)                 \
    X(g_pfDebug, Log_Output_Func)                 \
    X(g_tmnHead, Trace_Mem_Node)                  \
    X(g_cnAlloc, int32_t)                         \
    X(g_cnFree, int32_t)                          \
    X(g_mtxMem, pthread_mutex_t)                  \
    X(g_rypszReservedShare, const char *const[1]) \
    X(g_stPreface, const char[16])

/* record, field, offset, size */
#define FIELDS(X)                          \
    X(Simp_Log, fpLog, 0, 8)               \
    X(Simp_Log, idTimeFormat, 8, 2)        \
    X(Simp_Log, idDateFormat, 10, 2)       \
    X(Sect_Node, pNext, 0, 8)              \
    X(Sect_Node, pPairs, 8, 8)             \
    X(Pair_Node, pNext, 0, 8)              \
    X(Pair_Node, pszValue, 8, 8)           \
    X(Folder_Tree_State, cnFiles, 0, 4)    \
    X(Folder_Tree_State, cnFolders, 4, 4)  \
    X(Folder_Tree_State, ullBytes, 8, 8)   \
    X(Folder_Tree_State, ullBlocks, 16, 8) \
    X(SSL_Socket_Info, fdSocket, 0, 4)     \
    X(SSL_Socket_Info, pBio, 8, 8)         \
    X(SSL_Socket_Info, pSsl, 16, 8)        \
    X(SSL_Socket_Info, pCtx, 24, 8)        \
    X(Mount_Info, pNext, 0, 8)             \
    X(Mount_Info, nPassNo, 8, 4)           \
    X(Mount_Info, nFreq, 12, 4)            \
    X(Mount_Info, pszFsName, 16, 8)        \
    X(Mount_Info, pszDir, 24, 8)           \
    X(Mount_Info, pszType, 32, 8)          \
    X(Share_Info, pNext, 0, 8)             \
    X(Share_Info, uMtime, 8, 4)            \
    X(Share_Info, uMtimeNsec, 12, 4)       \
    X(Share_Info, uMode, 16, 4)            \
    X(Share_Info, uFlags, 20, 4)           \
    X(Share_Info, uUid, 24, 4)             \
    X(Share_Info, uGid, 28, 4)             \
    X(Share_Info, uFsType, 32, 4)          \
    X(Share_Info, uBlockSize, 36, 4)       \
    X(Share_Info, ullFreeBytes, 40, 8)     \
    X(Block_Info, pNext, 0, 8)             \
    X(Block_Info, pszDevice, 8, 8)         \
    X(Block_Info, pszUuid, 16, 8)          \
    X(Block_Info, pszType, 24, 8)          \
    X(Volume_Info, ullFreeBytes, 0, 8)     \
    X(Volume_Info, ullTotalBytes, 8, 8)    \
    X(Volume_Info, nPartition, 16, 4)      \
    X(Volume_Info, szDevice, 20, 24)       \
    X(Volume_Info, szMountPath, 44, 44)    \
    X(Volume_Info, szUuid, 88, 40)         \
    X(Volume_Info, szType, 128, 12)        \
    X(Volume_Info, szLabel, 140, 16)       \
    X(Volume_Info, szModel, 156, 32)       \
    X(Volume_Info, szVendor, 188, 32)      \
    X(Netif_Info, pNext, 0, 8)             \
    X(Netif_Info, uFlags, 8, 4)            \
    X(Netif_Info, idIndex, 12, 2)          \
    X(Netif_Info, nIPv4Prefix, 14, 2)      \
    X(Netif_Info, szMac, 16, 18)           \
    X(Netif_Info, szName, 34, 16)          \
    X(Netif_Info, szIPv4, 50, 16)          \
    X(Netif_Info, pIPv6List, 72, 8)        \
    X(Netif_IPv6, pNext, 0, 8)             \
    X(Netif_IPv6, nPrefixLen, 8, 2)        \
    X(Netif_IPv6, szAddress, 10, 46)       \
    X(Trace_Mem_Node, pNext, 0, 8)         \
    X(Trace_Mem_Node, pPrev, 8, 8)         \
    X(Trace_Mem_Node, uMagic, 16, 4)       \
    X(Trace_Mem_Node, szName, 20, 16)      \
    X(Trace_Mem_Node, nLine, 36, 4)        \
    X(Trace_Mem_Node, nSize, 40, 4)        \
    X(Trace_Mem_Node, szPrefix, 44, 16)    \
    X(Link_Queue, nMaxNumber, 0, 4)        \
    X(Link_Queue, nNumber, 4, 4)           \
    X(Link_Queue, nSize, 8, 4)             \
    X(Link_Queue, uFlags, 12, 1)           \
    X(Link_Queue, pMutex, 16, 8)           \
    X(Link_Queue, pCond, 24, 8)            \
    X(Link_Queue, pHead, 32, 8)            \
    X(Link_Queue, pTail, 40, 8)            \
    X(Link_Node, pNext, 0, 8)              \
    X(Link_Node, pPrev, 8, 8)              \
    X(Link_Node, wUser, 16, 2)             \
    X(Link_Node, wSize, 18, 2)

/* record, the text of open length that ends it, offset */
#define ENDING_TEXTS(X)          \
    X(Simp_Log, szFilename, 12)  \
    X(Sect_Node, szName, 16)     \
    X(Pair_Node, szKey, 16)      \
    X(Mount_Info, szOptions, 40) \
    X(Share_Info, szName, 48)    \
    X(Block_Info, szType2, 32)

#define SAME_TYPE(name, ...) \
    _Static_assert(__builtin_types_compatible_p(__typeof__(name), __VA_ARGS__), "type of " #name);
#define CHECK_FUNCTION(name, result, ...) SAME_TYPE(name, result(__VA_ARGS__))
#define CHECK_GLOBAL(name, type) SAME_TYPE(name, type)
#define CHECK_TEXT(record, field, offset) \
    _Static_assert(offsetof(record, field) == (offset), "offset of " #record "." #field);
#define CHECK_FIELD(record, field, offset, size) \
    CHECK_TEXT(record, field, offset)            \
    _Static_assert(sizeof(((record *)0)->field) == (size), "size of " #record "." #field);

FUNCTIONS(CHECK_FUNCTION)
GLOBALS(CHECK_GLOBAL)
FIELDS(CHECK_FIELD)
ENDING_TEXTS(CHECK_TEXT)

_Static_assert(sizeof(Folder_Tree_State) == 24, "size of Folder_Tree_State");
_Static_assert(sizeof(SSL_Socket_Info) == 32, "size of SSL_Socket_Info");
_Static_assert(sizeof(Volume_Info) == 224, "size of Volume_Info");
_Static_assert(sizeof(Netif_Info) == 80, "size of Netif_Info");
_Static_assert(sizeof(Netif_IPv6) == 56, "size of Netif_IPv6");
_Static_assert(sizeof(Link_Queue) == 48, "size of Link_Queue");
_Static_assert(sizeof(Link_Node) == 24, "size of Link_Node");
_Static_assert(sizeof(Trace_Mem_Node) == 64, "size of Trace_Mem_Node");

typedef void (*Any_Function)(void);

/* Held in memory, so that each name is linked. */
#define FUNCTION_ADDRESS(name, ...) (Any_Function)(name),
static const Any_Function volatile functions[] = {FUNCTIONS(FUNCTION_ADDRESS)};

#define GLOBAL_ADDRESS(name, type) &name,
static const void *const volatile globals[] = {GLOBALS(GLOBAL_ADDRESS)};

static int failed = 0;

static void expect(int holds, const char *what) {
    if (!holds) {
        printf("does not hold: %s\n", what);
        failed++;
    }
}

#define EXPECT(condition) expect(condition, #condition)

int main(void) {
    const size_t function_count = sizeof functions / sizeof functions[0];
    const size_t global_count = sizeof globals / sizeof globals[0];
    for (size_t i = 0; i < function_count; i++)
        expect(functions[i] != NULL, "every function is exported");
    for (size_t i = 0; i < global_count; i++)
        expect(globals[i] != NULL, "every global is exported");

    EXPECT(g_ptslLog == NULL);
    EXPECT(g_idLogLevel == 1);
    EXPECT(g_bDebugOutput == 1);
    EXPECT(g_pfError == NULL);
    EXPECT(g_pfDebug == NULL);
    EXPECT(strcmp(g_rypszReservedShare[0], "TMBackup") == 0);
    EXPECT(g_tmnHead.pNext == &g_tmnHead && g_tmnHead.pPrev == &g_tmnHead);
    EXPECT(g_tmnHead.uMagic == 0x5A8888A5u && g_tmnHead.nLine == 0 && g_tmnHead.nSize == 0);
    static const char zeros[16];
    EXPECT(memcmp(g_tmnHead.szName, zeros, sizeof zeros) == 0);
    EXPECT(memcmp(g_tmnHead.szPrefix, zeros, sizeof zeros) == 0);
    EXPECT(g_cnAlloc == 0 && g_cnFree == 0);
    EXPECT(memcmp(g_stPreface, "ZZZZZZZZZZZZZZZZ", sizeof g_stPreface) == 0);
    EXPECT(function_count == 169 && global_count == 11);

    printf("%zu functions, %zu globals, %d failed\n", function_count, global_count, failed);
    return failed != 0;
}

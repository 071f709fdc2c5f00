/**
 * @file
 * socket: host names and addresses, TCP connections and listeners, local domain sockets, waiting and exact transfer,
 * and TLS sessions.
 *
 * Ownership: sockets that a function hands out are closed by the caller. They are in blocking mode unless asked
 *            otherwise, and programs that are executed inherit them (no close-on-exec). A TLS session is a record of
 *            the caller's (`SSL_Socket_Info`) whose content `SSL_Socket_Destroy` gives back.
 * Errors:    0 or a count, or a negated errno, unless a function says otherwise.
 * Threads:   all functions are reentrant; one socket or session is used by one thread at a time. What threads that make
 *            TLS contexts must mind is said at `CTX_Initialize`.
 * Signals:   sending to a peer that is gone raises SIGPIPE, as `send` does: ignore it, or pass MSG_NOSIGNAL, which has
 *            no effect on a TLS session. A wait that a signal interrupts ends the call with -EINTR; `Exactly_SSL_Peek`
 *            alone goes on.
 *
 * TLS. The library is not linked to OpenSSL. The first TLS call uses what the process itself has: inside its
 * executable, linked, or loaded for all to see; where it has none, the system's own library is loaded. With none to be
 * found, every call that needs it logs an error and fails with -EOPNOTSUPP, and all others work. Peers are not
 * verified: the CA list is loaded, but no verification is asked for. A host that wants it sets it on the session's
 * `pCtx` or `pSsl` with OpenSSL's own calls. A peer that closes without TLS's close notification has ended, as on a
 * plain socket: who must know that nothing was cut off sends a length.
 *
 *     int32_t fd;
 *     if (TCP_Socket_Connect(NULL, "nas.local", 4000, 2500, &fd) == 0) {
 *         if (Exactly_Send(fd, &request, sizeof request, MSG_NOSIGNAL) > 0)
 *             Exactly_Recv(fd, &answer, sizeof answer, 2500);
 *         close(fd);
 *     }
 */
#ifndef KORVEX_SOCKET_H
#define KORVEX_SOCKET_H

#include <stdint.h>

#include "korvex_api.h"

#ifdef __cplusplus
extern "C" {
#endif

struct in6_addr; /* of <netinet/in.h> */

/* As OpenSSL declares them; its headers may be included before or after this one. */
typedef struct ssl_st SSL;         /**< OpenSSL's session */
typedef struct ssl_ctx_st SSL_CTX; /**< OpenSSL's context: certificates, key and options of sessions */
typedef struct bio_st BIO;         /**< OpenSSL's view of a socket */

/** A connection that `SSL_Recv` and `SSL_Send` work on: plain where `pCtx` is null, else a TLS session. */
typedef struct SSL_Socket_Info {
    int32_t fdSocket; /**< the connected socket; -1 when none */
    BIO *pBio;        /**< the session's BIO, freed with `pSsl` */
    SSL *pSsl;        /**< the session; null when none */
    SSL_CTX *pCtx;    /**< the context made for this session alone; null for a plain connection */
} SSL_Socket_Info;

/**
 * @name Addresses
 * @{
 */

/**
 * Resolves a host name, or a numeric address, to the text of its first address.
 *
 * Short and hexadecimal forms of an IPv4 address are taken, too. The text has no scope ("%eth0").
 *
 * @param pszDomain  name or address, not null.
 * @param pszIP      receives the address text; at least 46 bytes, not null. Empty where the family is another one.
 * @param pidFamily  receives the family that was found, AF_INET or AF_INET6 on success; not null.
 * @return 0; -EINVAL for a null pointer; -EFAULT for another family; else what the resolver left in `errno`, negated,
 *         or -EHOSTUNREACH where it left none (an unknown name usually does) or EINTR.
 *
 * Logs: debug messages.
 */
KORVEX_API int32_t Domain_To_IP_Addr(const char *pszDomain, char *pszIP, int32_t *pidFamily);

/**
 * Tells whether a name or an address is one of this host's.
 *
 * Of a name the first address counts. It must be an interface's own: 127.0.0.2 is none, though it leads to this host.
 *
 * The test is loose, and hosts rely on it: an IPv4 text matches an interface's address that merely begins with it
 * (10.0.0.1 matches 10.0.0.12), and an IPv6 text is compared with the addresses of the first interface only.
 *
 * @param pszAddr  name or address; null or empty is -EINVAL.
 * @return 1 if it is, 0 if not, which includes a name that can't be resolved and interfaces that can't be listed.
 *
 * Logs: an error for a name that can't be resolved and for interfaces that can't be listed.
 */
KORVEX_API int32_t Is_IP_Localhost(const char *pszAddr);

/**
 * Compares the first bits of two IPv6 addresses.
 *
 * Whole bytes are compared exactly. Of a rest of the prefix only its two lowest bits count, as it has always been: a
 * rest of 1, 2 or 3 bits is right; 4 bits are not compared at all; 5, 6 and 7 count as 1, 2 and 3.
 *
 * @param pAddr1, pAddr2  addresses, not null.
 * @param nPrefix         bits, 1 to 128.
 * @return 0 where they match, 113 (EHOSTUNREACH, positive) where not, -EINVAL for a null pointer or another prefix.
 */
KORVEX_API int32_t IPv6_Check_Subnet(const struct in6_addr *pAddr1, const struct in6_addr *pAddr2, int32_t nPrefix);

/**
 * Finds the scope id (interface index) for a link-local address in /proc/net/if_inet6.
 *
 * The answer is the first line whose network holds the address, compared as `IPv6_Check_Subnet` does. The first 1023
 * bytes of the list are looked at, "lo" is passed over, and the last line among them is the answer when none before it
 * matches, whatever its address. An index above 255 is read from its first two digits.
 *
 * @param pAddr      address, not null.
 * @param puScopeId  receives the scope id, not null; 0xFFFFFFFF when none is found.
 * @return 0; -EINVAL for a null pointer; -ENODEV when none is found or the list can't be read.
 *
 * Logs: debug messages where the list can't be read or is empty.
 */
KORVEX_API int32_t IPv6_Get_Scope_Id(const struct in6_addr *pAddr, uint32_t *puScopeId);

/**
 * @}
 * @name TCP
 * @{
 */

/**
 * Connects to the first address of a host. The socket has TCP_NODELAY, and the time-out for receiving and sending.
 *
 * An IPv6 address without "%" gets the scope id of `IPv6_Get_Scope_Id`, except "::1" and texts that begin with
 * "::ffff:"; where there is none it is tried without. No other address of the name is tried.
 *
 * @param pszLocalIP  IPv4 address to bind to first, or null; with an IPv6 peer the bind fails. A text that is no
 *                    address is not refused: the system then picks the address.
 * @param pszHost     name or address, not null.
 * @param nPort       1 or more.
 * @param nTimeout    milliseconds for the connection and later for each receive and send; 0 or less: 120 seconds.
 * @param pfdSocket   receives the socket, not null; -1 on every failure but -EINVAL for an argument.
 * @return 0; -EINVAL for a bad argument; -EINPROGRESS when the time is over; -EADDRNOTAVAIL when the local address is
 *         not this host's; else as `Domain_To_IP_Addr` for the name, or what the failing call reported.
 *
 * Logs: errors for options that can't be set; debug messages for the rest.
 */
KORVEX_API int32_t TCP_Socket_Connect(const char *pszLocalIP, const char *pszHost, int32_t nPort, int32_t nTimeout,
                                      int32_t *pfdSocket);

/**
 * Listens on every address of a host, one socket per address. IPv6 sockets take IPv6 peers only, so both wildcards can
 * be bound. An address that can't be bound is passed over if another can be. The sockets are in the order of the
 * resolver. They have SO_REUSEADDR, so a port can be bound while its old connections fade away, and TCP_NODELAY, which
 * the accepted connections inherit.
 *
 * @param pszHost     name or address; null: all local addresses, by one socket for IPv4 and one for IPv6.
 * @param nPort       1 or more.
 * @param nBacklog    1 to 128.
 * @param pfdArray    receives the sockets and a -1 behind them: room for `nArraySize` + 1 values, not null.
 * @param nArraySize  sockets that it may receive; 0 or less is as good as none.
 * @return 0, also for a name without any address (the array then holds just the -1); -EINVAL for a bad argument;
 *         -ENOMEM when addresses are left without room for another socket, even if they could not be bound; else as
 *         `Domain_To_IP_Addr` for the name, what `listen` reported, or where no address can be bound, the failure of
 *         the last one. After a failure all sockets of the call are closed; their places hold -1, and so does the first
 *         place. A bad argument, and -ENOMEM without room for a single socket, leave the array untouched.
 *
 * Logs: errors; debug messages for names and sockets.
 */
KORVEX_API int32_t TCP_Socket_Listen(const char *pszHost, int32_t nPort, int32_t nBacklog, int32_t *pfdArray,
                                     int32_t nArraySize);

/**
 * @}
 * @name Local domain sockets
 * @{
 */

/**
 * Puts a descriptor into non-blocking mode; its other flags stay.
 *
 * @param fd  descriptor, a socket or not.
 * @return 0, or what `fcntl` reported.
 *
 * Logs: errors.
 */
KORVEX_API int32_t Domain_Sock_Set_Nonblocking(int32_t fd);

/**
 * Listens on a path, for everybody (mode 0666, whatever the umask) and with a backlog of 128.
 *
 * Whatever file is at the path is removed first: a link, not what it leads to; a folder stays and gives -EADDRINUSE. A
 * second listener takes the path over: the first keeps its socket, but no client reaches it any more.
 *
 * The mode is set on the socket's own file, whatever somebody who may write to the folder puts in its place: -ELOOP (a
 * link) or -ESTALE (another file) is then in the message. It needs /proc.
 *
 * @param pszPath       shorter than 108 bytes, not null.
 * @param pfdSocket     receives the socket, not null; -1 on every failure, but untouched on -EINVAL for an argument.
 * @param bNonblocking  non-zero for a non-blocking listener; negative is -EINVAL.
 * @return 0, also where the mode could not be set or the socket not be made non-blocking; -EINVAL; -ENAMETOOLONG
 *         (nothing is removed); else what `socket`, `bind` or `listen` reported.
 *
 * Logs: errors.
 */
KORVEX_API int32_t Domain_Socket_Listen(const char *pszPath, int32_t *pfdSocket, int32_t bNonblocking);

/**
 * Connects to a path.
 *
 * @param pszPath    shorter than 108 bytes; not null, which is not checked.
 * @param pfdSocket  receives the socket, and is untouched on failure; not null, which is not checked.
 * @param nTimeout   milliseconds for each receive and send, and for the connection; 0: none. A negative one that is no
 *                   whole second is -EDOM.
 * @return 0; -ENAMETOOLONG; -ENOENT or -ECONNREFUSED when nobody listens; -EAGAIN when the listener's queue stays full;
 *         else what the failing call reported.
 *
 * Logs: errors.
 */
KORVEX_API int32_t Domain_Socket_Connect(const char *pszPath, int32_t *pfdSocket, int32_t nTimeout);

/**
 * @}
 * @name Waiting and exact transfer
 * @{
 */

/**
 * Waits until a socket can be read, or its peer has closed.
 *
 * @param fd        any descriptor, above 1023 too; what is none is -EBADF.
 * @param nTimeout  milliseconds; negative waits without limit.
 * @return 1; 0 when the time is over; else what `select` reported, -EINTR included, which is in `errno`, too.
 */
KORVEX_API int32_t Is_Socket_Ready_To_Recv(int32_t fd, int32_t nTimeout);

/**
 * Waits until a socket can be written: as `Is_Socket_Ready_To_Recv`, but a negative time-out is -EINVAL, whatever the
 * descriptor.
 *
 * @param fd        as for `Is_Socket_Ready_To_Recv`.
 * @param nTimeout  milliseconds, not negative.
 * @return as `Is_Socket_Ready_To_Recv`; -EINVAL.
 */
KORVEX_API int32_t Is_Socket_Ready_To_Send(int32_t fd, int32_t nTimeout);

/**
 * Waits until one of some sockets can be read, has hung up or has an error.
 *
 * @param pfdList   sockets, not null. A negative one is passed over; one that is closed counts as ready.
 * @param nCount    1 to 16.
 * @param nTimeout  milliseconds as for `poll`; negative waits without limit.
 * @param pfdReady  receives the first ready one in the order of the list, not null; untouched otherwise.
 * @param pnIndex   receives its index; may be null.
 * @return 1; 0 when the time is over; -EINVAL; else what `poll` reported.
 */
KORVEX_API int32_t Is_Any_Socket_Ready(const int32_t *pfdList, int32_t nCount, int32_t nTimeout, int32_t *pfdReady,
                                       int32_t *pnIndex);

/**
 * Receives an exact number of bytes, and leaves the rest in the socket.
 *
 * The time-out is for a peer that has closed, and looked at only then: until it is over the call asks again, without a
 * pause. How long a silent peer is waited for is the socket's own time-out, whose end is -EAGAIN. A clock that is set
 * back ends the call as the time-out does.
 *
 * @param fd        connected socket.
 * @param pBuf      receives the bytes.
 * @param nLength   bytes; below 1 receives nothing.
 * @param nTimeout  milliseconds; negative never ends.
 * @return `nLength`; 0 for a length below 1; -ETIME (`errno` too) when the peer has closed; else what `recv` reported.
 *         After a failure the buffer holds what had come; how much is not told.
 *
 * Logs: errors; the one for the time-out names Exactly_SSL_Recv().
 */
KORVEX_API int32_t Exactly_Recv(int32_t fd, void *pBuf, int32_t nLength, int32_t nTimeout);

/**
 * Sends an exact number of bytes, however short the single sends are. It has no time-out but the socket's own.
 *
 * @param fd        connected socket.
 * @param pBuf      bytes to send.
 * @param cbLength  how many.
 * @param uFlags    flags of `send`.
 * @return `cbLength`; else what `send` reported: -EAGAIN for the socket's own time-out or a full socket that does not
 *         wait, -EPIPE for a peer that is gone. How much was sent before is not told.
 *
 * Logs: errors.
 */
KORVEX_API int64_t Exactly_Send(int32_t fd, const void *pBuf, uint64_t cbLength, uint32_t uFlags);

/**
 * Receives an exact number of bytes into a file through a pipe, so that they never come into this process's memory.
 *
 * It waits for as long as it takes: a peer that closes early is asked once a second, for ever. So is one that sent a
 * byte as urgent (MSG_OOB on TCP) before the last one that is wanted: neither that byte nor what follows it is
 * received.
 *
 * @param fdSocket     connected socket, not negative.
 * @param fdFile       file, pipe or socket to write to, not negative.
 * @param pOffset      where to write in the file, advanced by what was written; null writes at the file position.
 * @param nLength      bytes, not negative.
 * @param pcbReceived  receives the bytes moved, also on failure, but not on -EINVAL or where no pipe could be made;
 *                     what a last, short write took is not counted. May be null.
 * @return 0; -EINVAL for a negative descriptor or length; else what `pipe`, `select` or `splice` reported. A file that
 *         takes fewer bytes than came ends the call with the negated `errno`, which may be 0.
 *
 * Logs: errors.
 */
KORVEX_API int32_t Recv_File(int32_t fdSocket, int32_t fdFile, int64_t *pOffset, int64_t nLength,
                             uint64_t *pcbReceived);

/**
 * @}
 * @name TLS sessions
 *
 * The certificate file is PEM and holds the chain, the host's own certificate first, and its private key. Every
 * protocol version that the OpenSSL at hand allows is negotiated.
 *
 * Logs: errors.
 * @{
 */

/**
 * Makes a TLS context.
 *
 * A certificate that OpenSSL refuses without a system error in `errno` is passed over, as it always was; that shows
 * when the key is loaded, or in the handshake.
 *
 * Threads: the first context of all is made alone, since it sets OpenSSL up. Each call loads its key with its own pass
 * phrase. A key that the caller loads into a context later is opened with the pass phrase of the process's latest call.
 *
 * @param pszCertFile  certificates and key, not null.
 * @param pszPassword  pass phrase of the key, not null; any text where the key has none. It is not copied: it must stay
 *                     for as long as keys are loaded into contexts. One that does not fit OpenSSL's buffer opens no
 *                     key.
 * @param pszCAFile    certificates of trusted authorities, not null.
 * @param ppCtx        receives the context, not null; null on failure, untouched on -EINVAL. Free it with
 *                     `CTX_Destroy`.
 * @return 0; -EINVAL for a null pointer; -EOPNOTSUPP without OpenSSL; -ENOMEM; what kept the certificates from being
 *         read; -ENOENT when the key (a wrong pass phrase, a key of another certificate) or the authorities can't be
 *         loaded.
 */
KORVEX_API int32_t CTX_Initialize(const char *pszCertFile, const char *pszPassword, const char *pszCAFile,
                                  SSL_CTX **ppCtx);

/**
 * Frees a context; null is ignored.
 *
 * @param pCtx  context to free, or null.
 */
KORVEX_API void CTX_Destroy(SSL_CTX *pCtx);

/**
 * Opens a TLS session as the client on a connected socket.
 *
 * @param pszCertFile, pszPassword, pszCAFile  as for `CTX_Initialize`.
 * @param pSock  whose `fdSocket` is the connected socket, not negative. Filled on success, whatever else it held, which
 *               is not freed; untouched on failure. A failure does not close the socket. End it with
 *               `SSL_Socket_Destroy`.
 * @return 0; -EINVAL for a null pointer or a negative socket; as `CTX_Initialize`; -ENOMEM; else what the handshake
 *         left in `errno` (-EAGAIN: the socket's own time-out), or -EPROTO where it left none: the peer speaks no TLS,
 *         refuses, or went away.
 */
KORVEX_API int32_t SSL_Connect_Socket(const char *pszCertFile, const char *pszPassword, const char *pszCAFile,
                                      SSL_Socket_Info *pSock);

/**
 * `SSL_Connect_Socket` as the server, on an accepted socket.
 *
 * @param pszCertFile, pszPassword, pszCAFile, pSock  as for `SSL_Connect_Socket`.
 * @return as `SSL_Connect_Socket`.
 */
KORVEX_API int32_t SSL_Accept_Socket(const char *pszCertFile, const char *pszPassword, const char *pszCAFile,
                                     SSL_Socket_Info *pSock);

/**
 * Connects to a host as `TCP_Socket_Connect` does, and opens a TLS session as the client.
 *
 * @param pszHost   name or address, not null.
 * @param nPort     1 or more.
 * @param nTimeout  milliseconds, as for `TCP_Socket_Connect`.
 * @param pszCertFile, pszPassword, pszCAFile  as for `CTX_Initialize`. A null one is found when the connection stands,
 *                  and closes it again.
 * @param pSock     filled on success, untouched on failure; not null.
 * @return 0; -EINVAL; else as `TCP_Socket_Connect` or `SSL_Connect_Socket`. Nothing is left open after a failure.
 */
KORVEX_API int32_t SSL_Socket_Connect(const char *pszHost, int32_t nPort, int32_t nTimeout, const char *pszCertFile,
                                      const char *pszPassword, const char *pszCAFile, SSL_Socket_Info *pSock);

/**
 * Ends a connection of either kind, closes its socket and empties the record (-1 and nulls). A record that was emptied,
 * and null, are ignored; one that holds a session or a context alone gives it back. A BIO without a session is not
 * freed.
 *
 * @param pSock        connection to end, or null.
 * @param bNoShutdown  non-zero leaves the peer without the TLS close notification.
 */
KORVEX_API void SSL_Socket_Destroy(SSL_Socket_Info *pSock, int32_t bNoShutdown);

/**
 * Receives: `recv` on a plain connection, `SSL_read` or, with MSG_PEEK, `SSL_peek` on a session.
 *
 * On a session `errno` is set to 0 first, and after a negative result always has a reason: that of the system, EPROTO
 * where OpenSSL names none (the peer broke the rules), or EOPNOTSUPP without OpenSSL. On a plain connection it is
 * `recv`'s.
 *
 * A session shows or hands out the bytes of one record at a time (what its peer sent at once, at most 16 KiB), however
 * many more have come. Asked for 0 bytes, either kind of connection waits until something has come
 * all the same.
 *
 * @param pSock     connection of either kind.
 * @param pBuf      receives the bytes.
 * @param cbLength  bytes; a session receives at most INT_MAX at once.
 * @param uFlags    flags of `recv`; a session knows MSG_PEEK alone.
 * @return what that call returned: the count, 0, or negative, and then not a negated errno.
 */
KORVEX_API int64_t SSL_Recv(SSL_Socket_Info *pSock, void *pBuf, uint64_t cbLength, uint32_t uFlags);

/**
 * Sends: `send` on a plain connection, `SSL_write` on a session.
 *
 * `errno` is treated as by `SSL_Recv`.
 *
 * @param pSock     connection of either kind.
 * @param pBuf      bytes to send.
 * @param cbLength  bytes; a session sends at most INT_MAX at once.
 * @param uFlags    flags of `send`; a session ignores them.
 * @return what that call returned: the count, 0, or negative, and then not a negated errno.
 */
KORVEX_API int64_t SSL_Send(SSL_Socket_Info *pSock, const void *pBuf, uint64_t cbLength, uint32_t uFlags);

/**
 * @}
 * @name Exact transfer on either kind of connection
 *
 * The time-outs are milliseconds; a negative one never ends, and a clock that is set back ends any other. They are
 * looked at after a receive that brought nothing, or a peek that showed too little: how long one receive may take is
 * the socket's own time-out. The calls do not pause, so on a non-blocking socket, or when the peer has closed, they use
 * the processor until the end.
 * @{
 */

/**
 * Waits until a number of bytes can be read, and copies them without taking them.
 *
 * A receive that fails, or a peer that has closed, does not end it: the time-out does. A session shows the bytes of one
 * record, never those of the next: where the peer sent them in two, the call ends with -ETIME though all have come.
 *
 * @param pSock     connection of either kind.
 * @param pBuf      receives the bytes.
 * @param nLength   bytes; a negative value is refused, and 0 waits as `SSL_Recv` does.
 * @param nTimeout  milliseconds; negative never ends.
 * @return `nLength`; -ETIME (`errno` too) when the time is over, and what has come stays; -EINVAL (`errno` too) for a
 *         negative length.
 *
 * Logs: errors.
 */
KORVEX_API int32_t Exactly_SSL_Peek(SSL_Socket_Info *pSock, void *pBuf, int32_t nLength, int32_t nTimeout);

/**
 * Receives an exact number of bytes.
 *
 * Each receive that ends with EAGAIN lowers the count by one, and the next one lands a byte earlier: after a time-out
 * of the socket itself the stream is out of step. Give it a longer time-out than this call. Bytes that would land
 * before the buffer are dropped; a record of a local socket that reaches into it is not cut.
 *
 * @param pSock     connection of either kind.
 * @param pBuf      receives the bytes.
 * @param nLength   bytes; below 1 receives nothing.
 * @param nTimeout  milliseconds; negative never ends.
 * @return the count; 0 for a length below 1; -ETIME (`errno` too) when the time is over, also where the peer has
 *         closed; else the negated `errno` of a failed receive. After a failure the buffer holds what had come.
 *
 * Logs: errors.
 */
KORVEX_API int32_t Exactly_SSL_Recv(SSL_Socket_Info *pSock, void *pBuf, int32_t nLength, int32_t nTimeout);

/**
 * `Exactly_SSL_Recv`, which also tells the count after a failure.
 *
 * @param pSock, pBuf, nLength, nTimeout  as for `Exactly_SSL_Recv`.
 * @param pnReceived  receives the count so far, also while the call runs; not null, which is not checked.
 * @return as `Exactly_SSL_Recv`.
 */
KORVEX_API int32_t Exactly_SSL_Recv_Ex(SSL_Socket_Info *pSock, void *pBuf, int32_t nLength, int32_t nTimeout,
                                       int32_t *pnReceived);

/**
 * Sends an exact number of bytes, however short the single sends are; one that sends nothing is repeated.
 *
 * @param pSock     connection of either kind.
 * @param pBuf      bytes to send.
 * @param cbLength  how many.
 * @param uFlags    flags of `send` for a plain connection.
 * @return `cbLength`; -ETIME for EAGAIN, the socket's own time-out; else the negated `errno` of a failed send.
 *
 * Logs: errors; debug messages for short sends.
 */
KORVEX_API int64_t Exactly_SSL_Send(SSL_Socket_Info *pSock, const void *pBuf, uint64_t cbLength, uint32_t uFlags);

/** @} */

#ifdef __cplusplus
}
#endif

#endif

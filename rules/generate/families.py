"""The attack phrases behind the default rules, by family. generate_rules.py spells them out.

A phrase is one text; "*" in it divides words that must follow one another with anything between. A word that begins or
ends with a letter, digit or "_" is found only as a whole word; a word that begins or ends with another character is
found anywhere. The gap between words has no bound, so every word of a phrase must be telling by itself.
"""

LIMITS = {"keyword_rules": 3500, "cut_words": 200}
STAR = "\N{ASTERISK OPERATOR}"  # in a phrase: an asterisk that divides no words

# Spellings of the blanks of a phrase; see STYLES in generate_rules.py.
BLANKS = ("blank", "plus")
PLAIN = ("blank",)

EVERYWHERE = ("get", "post", "header")
ADDRESS_AND_HEADERS = ("get", "header")
BODY = ("post",)

# Phrases that ordinary bodies hold: program code in posts, escaped markup, plain sentences.
NOT_IN_BODIES = {
    "+alert(", "and 1 = 1", "+char(", "document.cookie+", "onload=\\", "document.queryselector", "&lt;img*onerror=",
    "\" onclick=", "1' or ", "select concat(", "benchmark(*char(",
    "onerror=+", "+document.cookie", ";eval(", "\nalert(",
    "location.href", " alert(", ";select ", ";create table", "; create table", " char(", "new function(", "alert('hello",
}

KEYWORDS = []


def family(number, english, chinese, phrases, styles=BLANKS, places=EVERYWHERE):
    KEYWORDS.append({"number": number, "english": english, "chinese": chinese, "phrases": list(phrases),
                     "styles": styles, "places": places})


# ---- SQL ------------------------------------------------------------------------------------------------------------

family(101, "Union query", "联合查询注入", [
    "union all select", "union distinct select", "union distinctrow select", "union(select",
    "union (select",
    "union all(select", "union all (select", "union distinct (select", "union((select", "union select(",
] + [
    # In prose a noun follows: "the teachers' union select board".
    "union select " + text for text in ["null", "'", "\"", "@", "-", "(", f"{STAR} from", "char(", "concat(",
    "user(", "version(", "table_name", "count("] + list("0123456789")
], BLANKS)
family(104, "Union query", "联合查询注入", ["+union+select+"], PLAIN, ("header",))
family(102, "Union query", "联合查询注入", [
    "union\r\nselect", "union\n\nselect", "union\\nselect", "union\\tselect", "union\\nall\\nselect",
    "union\\tall\\tselect", "union\\r\\nselect", "union/*/all/*/select", "union/*/distinct/*/select",
    "union--*\nselect", "union#*\nselect",
    "#\nunion", "-1#*\nunion", "union #\n", "'union select", "\"union(", "/union/*(select", "!union", "1union",
    ")union", "}union", "`union",
], PLAIN)
family(103, "Union query", "联合查询注入", [
    ",null,null", "select null,null", "select null--", "select null#", "select 1,2,", "select 1,user",
    "select 1,version", "select 1,null",
    "order select",
], BLANKS)

_DIGITS = "0123456789"
family(121, "Always-true condition", "永真条件注入", [
    f"{word} {one}{sign}{one}" for word in ("or", "and") for one in _DIGITS for sign in ("=", " = ")
    if sign == "=" or one == "1"
] + [
    f"{word} {one}={one}" for word in ("or", "and") for one in ("11", "100", "123")
] + [
    f"or {one}{sign}{other}" for sign in ("=", " = ") for one, other in (("a", "a"), ("x", "x"), ("b", "b"), ("a", "b"))
] + [
    f"{word} {one}={other}" for word in ("or", "and") for one, other in (("1", "2"), ("1", "0"), ("0", "1"), ("2",
    "1"), ("2", "3"), ("1", "3"))
] + [
    f"{word} {text}" for word in ("or", "and") for text in (
        "1>0", "1 > 0", "2>1", "2 > 1", "1<2", "1<>2", "1!=2", "1>1", "1 like 1", "(1=1", "(1)=", "not 1=",
        "true--", "true#", "1--", "1 -- ", "0--", "false--")
] + ["and(1)=", "or(1)=", "or(1=1", "and(1=1", "or 1 --", "and true;"], BLANKS)
_OPERATORS = ["=", "||", "&&", "<=", ">=", "<>", "!=", "<=>", "like", "or", "and", "xor", "div", "mod", "rlike",
    "regexp", "not like", "not regexp",
              "sounds like", "^", "|", "&"]
family(122, "Always-true condition", "永真条件注入", [
    f"{word} {quote}{one}{quote}{sign}{quote}" for word in ("or", "and") for quote in "'\"" for one in ("1", "a", "x",
    "")
    for sign in ("=", " = ")
] + [
    f"{word} {brackets}{quote}*{quote}{sign}{quote}" for word in ("or", "and") for brackets in ("", "(",
    "((") for quote in "'\""
    for sign in ("=", " like ")
] + [
    f"'{brackets} {word} {other}'" for brackets in ("", ")", "))") for other in ("", "(", "((") for word in ("or",
    "and")
    if (brackets, other) != ("", "")
] + [
    f"'{operator}'" for operator in _OPERATORS if operator not in ("or", "and", "like", "div", "mod", "|")
] + [
    f"' {operator} '" for operator in _OPERATORS if operator not in ("and", "or")
] + [
    "\" or \\\"*\\\"=\\\"", "\" and \\\"*\\\"=\\\"", "and \\\"*\\\"=\\\"", "and (\\\"*\\\"=\\\"",
    "and \\\"*\\\" like \\\"", "and (\\\"*\\\" like \\\"",
    "\" or \"\"=\"", "\" or \"*\"=\"", "\" and \"*\"=\"", "\"or 1", "'or 1", "'and 1",
    "' or '1", "' or 'a'", "' or 'x'", "' or ''", "' or true", "\" or true", "'or(", "'and(", "'||1", "' || 1",
    "'||(", "\"||(", "'||'", "'|(", "'^(", "'+(select", "'&(", "'&&(", "'xor(", "'xor ",
    "' or not ", "' and not ", "or ''='", "or''='", "or \"\"=\"", "'=0--", "'='' or", "'=''or", "'=''--", "' is null",
    "' is not null", "'like-", "\"or!", "\"or-", "\"or@", "'!=ascii",
    "'>>'", "'<<'", "' >> '", "' << '", "' < '", "' > '", "' not rlike '", "' ^ ", "'^0", "'&0", "') or (", "'and(",
    "' div 1", "or '1", "and '1",
], BLANKS)
_CALLS = ["ascii(", "substring(", "substr(", "mid(", "length(", "len(", "char_length(", "ord(", "exists(",
    "exists (select", "(select(", "(ascii(", "if(", "(if(",
          "unicode(", "hex(", "elt(", "make_set(", "exp(", "char(", "chr(", "user()", "version()",
          "database()", "(length(",
          "sleep(", "db_name(", "system_user", "current_user", "updatexml(", "extractvalue(", "json_keys(",
          "case when", "ifnull(",
          "md5(", "@@", "sin(", "cos(", "rand(", "instr(", "concat(",
          "not exists(", "select count"]
family(125, "Blind condition", "布尔盲注", [
    "rlike (select", "rlike sleep(", "like (select", "in(select",
    "1=(select", "0=(select", "'=(select", "\"=(select", ")=(select", ">(select", "<(select", "like(select",
    "having 1=", "(case when", "select case when",
    "case when (",
    "then 1 else 0 end", "then 1 else", "else null end", "else drop ", "iif(", "(elt(",
    "select elt(", "in boolean mode) and", "in boolean mode) or",
    "in boolean mode)", "collate nocase", "::bool", "::int", "::jsonb", "is not null--",
    "or user like '", "or name like '", "collate`", "or username like '", "or 1 in (", "1' or ", "-1' or ", 
    "-1' and ", "'or'1", "'and'1", "' and (1", "'or id", "(1)and(", "(1)or(", ")or(",
], BLANKS)
# "Order by 5 pm" and "group by 2" are ordinary; so something must end the statement.
family(131, "Subquery", "子查询注入", [
    "(select " + text for text in (
        "count(", "substring(", "lower(", "upper(", "floor(", "row(", "concat(", "concat_ws(", "char(", "chr(",
        "case ", "@@", "@", "group_concat(", "top 1", "distinct ", "distinct(", "0x", "null", "table_name",
        "column_name", "schema_name", "user(", "user from", "password from", "version(", "database(", "sleep(",
        "ascii(", "substring(", "substr(", "mid(", "if(", "load_file(", "cast(",
        "hex(", "elt(", "upper(", "length(", "convert(", "id from", "1 from", "1)", "1,", "2,", "current_user",
        "unhex(", "coalesce(", "nvl(",
        "min(", "max(", "username from", "login from", "email from users", "pass from", "banner from", "xmltype(",
        "utl_", "dbms_", "db_name(", "binary ", "cos ", "cos(", "pg_sleep",
        "randomblob", "extractvalue(", "updatexml(", "benchmark(*md5(", "benchmark(*sha1(", "benchmark(*encode(",
        "benchmark(*char(", "benchmark(*rand(", "select benchmark(", "or benchmark(", "and benchmark(",
        ",benchmark(", "(benchmark(", "benchmark(1000000,", "benchmark(5000000,", "benchmark(10000000,",
        "and sleep (", "or sleep (", "select sleep (")
] + ["(select(", "(select`", "(select/", "(select\n", "(select\t", "(select--", "(select#", "(  select ", "((select",
    "( (select"], BLANKS)
family(132, "Data query", "数据查询注入", [
    "select concat(", "select group_concat(", "select @@", "select version(", "select user(", "select database(",
    "select sleep(", "select pg_sleep",
    "select benchmark(", "select load_file(", "select 1 from", "select null from", "select username from",
    "select password from", "select password,", "select table_name", "select column_name",
    "select top 1 ", "select 0x", "select utl_", "select dbms_", "select unhex(", "select cast(", "select convert(",
    "select hex(", "select ascii(", "select if(", "select sin(", "select*,sin(", "select -sin(",     "from users--", "from users#", "from users limit",
    "from admin--", "mysql.user", "pg_user", "pg_shadow", "pg_catalog.", "select schemaname", "(select top ",
    "limit 0,1--", "limit 1,1--", "limit 0,1/",
    "limit 1,1/", "limit 0,1#", "limit 1,1#", "limit 1--", "limit 1#", "select extractvalue(", "select updatexml(",
    "select login,", "select login from",
    "select pass from", "select pass,", "select user,", "select(user", "/select/*/from/", "from[", "select 1,sin",
    "select count(*) from generate_", "select -1,", "select '1',",
], BLANKS)

family(141, "Time-based blind injection", "时间盲注", [f"sleep({number}" for number in (*range(11), 15, 20, 30)] + [
    "sleep('", "sleep((", "sleep(@", "pg_sleep(", "benchmark(*md5(", "benchmark(*sha1(", "benchmark(*encode(", "benchmark(*char(",
    "benchmark(*rand(", "select benchmark(", "or benchmark(", "and benchmark(", ",benchmark(", "(benchmark(",
    "benchmark(1000000,", "benchmark(5000000,", "benchmark(10000000,", "and sleep (", "or sleep (", "select sleep (",
    "waitfor delay '", "waitfor delay\"", "waitfor delay \"", "waitfor delay @", "waitfor time '",
    "dbms_pipe.receive_message", "dbms_lock.sleep", "dbms_session.sleep", "user_lock.sleep",
    "randomblob(", "generate_series(", "regexp_substring(", "crypt_key(", "fuzzbits(", "from sysibm.",
    "sysibm.systables", "sysibm.sysdummy1", "rdb$fields", "rdb$database", "rdb$relations", "from all_users t1",
    "all_users t", "from sysusers as", "sysusers as sys", "domain.domains",
    "information_schema.system_users", "numbers(1000000)", "sysmaster:", "syscat.", "java.lang.thread.sleep",
    "waitfor delay",
], BLANKS)
family(142, "Error-based injection", "报错注入", [
    "extractvalue(", "updatexml(", "floor(rand(", "(rand(0)", "rand(0)", "rand()*", "procedure analyse(",
    "procedure analyse (", "utl_inaddr.", "ctxsys.drithsx", "ctxsys.ctx_", "xmltype(", "dbms_utility.",
    "dbms_xmlgen", "dbms_xslprocessor", "utl_http.request", "json_keys(", "gtid_subset(", "gtid_subtract(", "exp(~(",
    "exp(~", "make_set(",
    "convert(int,", "convert(int ,", "convert(int, ", "as numeric)", "::numeric", "::text||", "geometrycollection((",
    "polygon((select", "multipoint((select", "multipoint(", "linestring((select", "multilinestring(",
    "multipolygon((select", "name_const(", "httpuritype(", "st_latfromgeohash(", "st_longfromgeohash(",
    "st_pointfromgeohash(", "row(*)>(select",
    "cast((chr(", "cast((select", "cast(chr(", "cast(char(", "cast(version(", "cast(database(", "cast(user(",
    "cast(count(", "as char),0x", "extractvalue (", "updatexml (", "floor (rand (", "exp (~", "code(49)",
    "code(113)", "upper(xmltype", "elt(", "elt (",
], BLANKS)
family(151, "Reading the database's catalogue", "读取数据库结构", [
    "information_schema.", "from information_schema", "`information_schema`", "[information_schema]", "group_concat(",
    "group_concat (", "concat_ws(", "concat_ws (", "from mysql.", "from sysobjects", "..sysobjects",
    "..sysdatabases", "..syscolumns", "..sysusers", "..syslogins", "sys.databases", "sys.tables where", "from pg_",
    "sqlite_master", "from all_tables", "from all_tab_columns",
    "from dual--", "from dual)", "from dual where", "from dual union", "from dual#", "from v$version", "v$instance",
    "from user_tables", "sys.user$", "@@version", "@@datadir", "@@hostname", "@@basedir", "@@servername",
    "@@global.", "@@secure_file_priv",
    "table_schema=", "table_schema =", "table_schema!=", "table_schema like", "column_name from", "table_name from",
    "column_name,", "table_name,", "table_name)", "column_name)", "table_name=", "table_name =", "table_name like",
    "aes_decrypt(aes_encrypt(", "aes_decrypt(", "unhex(hex(", "database()", "version()", "current_user()",
    "system_user()", "session_user()", "(user()", ",user()", "=user()", "|user()", "schema_name from", "msysaccessobjects", "msysobjects",
    "version ()", "user ()", "database ()", "granted_role", "dba_users", "dba_role_privs", "sys.login_user",
    "current_setting(", "pg_read_file(", "db_name()", "db_name(", "host_name()", "1=system_user", "1=current_user",
    "=user--", "is_srvrolemember(", "from master..", "unhex (hex (",
], BLANKS)
family(152, "Reading or writing files", "读写服务器文件", [
    "load_file(", "load_file (", "into outfile '", "into outfile \"", "into outfile", "into dumpfile",
    "load data infile '", "load xml infile", "lo_import(", "lo_export(", "lo_get(", "pg_ls_dir(", "copy (select",
    "to program '", "utl_file.",
], BLANKS)

_STATEMENTS = ["select count(", "select case", "select sleep", "select pg_", "select benchmark", "select dbms_",
    "drop table", "drop database", "insert into",
               "delete from", "truncate table", "alter table", "create table", "create user", "create or replace",
               "create function", "exec(", "exec master",
               "execute immediate", "declare @", "waitfor delay", "set @", "xp_", "iif(", 
               "load xml", "load data", "drop function", "begin declare"]
_TIGHT = ["select ", "select(", "select\n", "select/", "drop ", "update ", "exec ", "execute ",
    "declare ", "create ", "waitfor ", "shutdown", "call ",
          "begin ", "if(", "if (", "iif("]
family(161, "Stacked query", "堆叠注入", [
    semi + text for semi in (";", "; ") for text in _STATEMENTS
    if semi == ";" or text in ("select count(", "drop table", "insert into", "delete from", "exec master", "waitfor delay", "declare @", "exec(", "drop database", "create table", "truncate table")
] + [
    closer + text for closer in ("';", "');") for text in _TIGHT
] + [
    "\");" + text for text in ("select ", "if(", "if (", "call ")
] + [
    "'; " + text for text in ("update ", "exec ", "declare ", "create ", "waitfor ", "shutdown")
] + [
    "';shutdown", "= all (select", "! all (select", "email=all(select", "union distinct ( select", "union ( select",
    "union all ( select", "select user from dual", "'or not false", "'or 0", "'or column", "'or id=",
    "||substr(", "|| substr(", "||ascii(", "||(select", "xp_cmdshell", "xp_regread", "xp_dirtree", "xp_fileexist",
    "xp_availablemedia", "sp_oacreate", "sp_executesql @", "sp_addlogin", "sp_addsrvrolemember",
    "sp_makewebtask", "sp_add_job", "exec master", "exec(@", "exec xp_", "exec sp_", "master..xp", "master.dbo.xp",
    "openrowset('", "opendatasource('",
    "create or replace function sleep", "call regexp_substring(", "execute immediate '", "execute immediate \"",
    "identified by '", "drop table users", "utl_smtp.",
    ";select ", ";drop ", "dbms_java.", "';select", "; exec (",
], BLANKS)

family(171, "Comment ends the statement", "注释截断语句", [
    closer + end for closer in ("')", "'))", "\")", "\"))", "%'") for end in ("--", " --", "#", " #", ";--")
    if not (closer == "\")" and end == "#")
] + [
    "';--", "'; --", "\";--", "\"; --", "'-- -", "' -- -", "'--+", "' --+", "'-- -", "admin'--", "admin' --",
    "admin'#", "admin' #", "admin'/", "admin' or", "admin\"--", "admin\" --", "admin\" #", "admin\"#", "admin\" or",
    "root'--", "root'#", "' or 1*--", "1'--", "1'#", "1' #", "1' --", "1'-- ", "x'--", "a'--",
    "1--+", "1 --+", "-- -a", 
], BLANKS)
family(172, "Comment that the database runs", "可执行注释绕过", [
    f"/{STAR}!union", f"/{STAR}!select", f"/{STAR}!or", f"/{STAR}!and", f"/{STAR}!50000union", f"/{STAR}!50000select", f"/{STAR}!12345union", f"/{STAR}!12345select",
    f"/{STAR}!00000union", f"/{STAR}!00000select",
    f"/{STAR}!50000", f"/{STAR}!00000", f"/{STAR}!40000", f"/{STAR}!12345", f"/{STAR}!30000", f"/{STAR}!32302", f"/{STAR}!13337", f"/{STAR}!11111",
], PLAIN)
family(173, "Character building", "字符拼接绕过", [
    "||chr(", "||char(", ")||chr", "concat(0x", "concat(char(", "concat(chr(", "concat((select", "concat((",
    "char(113)", "chr(113)", "+char(", " char(", ",char(", "(char(", "char(58)", "char(58),", "like char(",
    "like(char(", "like('abcdefg'", "'abcdefg',upper", "|| chr (", "||chr (", "||char (", "(chr(", "(chr (",
    "concat (0x", "concat ((", "||(select", "|| (select", "||'||", "'||'", "nchr(",
], BLANKS)
family(174, "Function nesting", "函数嵌套绕过", [
    "( cos (", "(select cos (", "binary binary", "binary ( select", "( binary (", "(select binary", "cos ( binary",
    "( binary cos", "((select", "( (select", "cos(pi())", "pi()", "ord('", "ascii('", "ascii(substr",
    "substring((select", "substr((select", "mid((select", "ascii(mid(", "hex(substr", "substring(version",
    "substring(user", "substring(database", "substring(@@", "mid(version", "mid(user", "mid(database",
    "unicode(substring", "isnull(ascii", "isnull(cast", "ifnull(cast", "ord(mid(", "coalesce(cast", "length((select",
    "length(database", "length(user", "count(select", "system_user--", "isnull(1/0", "sounds like '",
], BLANKS)

# The event attributes of HTML, SVG and older browsers (HTML living standard, MDN, SVG animation, historical lists).
EVENT_NAMES = sorted("""
onabort onactivate onafterprint onafterscriptexecute onafterupdate onanimationcancel onanimationend onanimationiteration onanimationstart onappinstalled onauxclick
onbeforeactivate onbeforecopy onbeforecut onbeforedeactivate onbeforeeditfocus onbeforeinput onbeforematch onbeforepaste onbeforeprint onbeforescriptexecute onbeforetoggle onbeforeunload onbeforeupdate onbeforexrselect onbegin onblocked onblur onbounce
oncancel oncanplay oncanplaythrough oncellchange onchange onclick onclose oncommand oncontentvisibilityautostatechange oncontextlost oncontextmenu oncontextrestored oncontrolselect oncopy oncuechange oncut
ondataavailable ondatasetchanged ondatasetcomplete ondblclick ondeactivate ondevicelight ondevicemotion ondeviceorientation ondrag ondragdrop ondragend ondragenter ondragexit ondragleave ondragover ondragstart ondrop ondurationchange
onemptied onencrypted onend onended onenterpictureinpicture onerror onerrorupdate onfilterchange onfinish onfocus onfocusin onfocusout onformchange onformdata onforminput onfullscreenchange onfullscreenerror
ongesturechange ongestureend ongesturestart ongotpointercapture onhashchange onhelp oninput oninvalid onkeydown onkeypress onkeyup onlanguagechange onlayoutcomplete onleavepictureinpicture onload onloadeddata onloadedmetadata onloadend onloadstart onlosecapture onlostpointercapture
onmediacomplete onmediaerror onmessage onmessageerror onmousedown onmouseenter onmouseleave onmousemove onmouseout onmouseover onmouseup onmousewheel onmove onmoveend onmovestart onmozfullscreenchange
onoffline ononline onoutofsync onpagehide onpagereveal onpageshow onpageswap onpaste onpause onplay onplaying onpointercancel onpointerdown onpointerenter onpointerleave onpointermove onpointerout onpointerover onpointerrawupdate onpointerup onpopstate onprogress onpropertychange
onratechange onreadystatechange onredo onrejectionhandled onrepeat onreset onresize onresizeend onresizestart onresume onreverse onrowenter onrowexit onrowsdelete onrowsinserted onscroll onscrollend onscrollsnapchange onscrollsnapchanging onsearch onsecuritypolicyviolation onseek onseeked onseeking onselect onselectionchange onselectstart onshow onslotchange onstalled onstart onstop onstorage onsubmit onsuspend onsyncrestored
ontimeerror ontimeupdate ontoggle ontouchcancel ontouchend ontouchmove ontouchstart ontrackchange ontransitioncancel ontransitionend ontransitionrun ontransitionstart onundo onunhandledrejection onunload onurlflip onvisibilitychange onvolumechange onwaiting onwaitingforkey onwebkitanimationend onwebkitanimationiteration onwebkitanimationstart onwebkitfullscreenchange onwebkitfullscreenerror onwebkittransitionend onwheel onzoom
""".split())

# What attacks use most. In a body every spelling of every name would be too many rules.
COMMON_EVENTS = """
onanimationend onanimationstart onauxclick onbeforeunload onbegin onblur onchange onclick oncontextmenu oncopy oncut ondblclick
ondrag ondragend ondragstart ondrop onend onerror onfocus onfocusin onhashchange oninput oninvalid onkeydown onkeypress onkeyup
onload onloadstart onmessage onmousedown onmouseenter onmouseleave onmousemove onmouseout onmouseover onmouseup onpageshow
onpaste onplay onpointerdown onpointerenter onpointerover onpopstate onpropertychange onreadystatechange onrepeat onreset
onresize onscroll onsearch onselect onstart onsubmit ontoggle ontouchstart ontransitionend onunload onwheel onzoom
""".split()

family(181, "Injection in an address", "来源地址中的注入", [
    "%20union%20select", "%20union%20all%20select", "%27%20union", "%27%20order%20by", "%20order%20by%201",
    "%27%20or%201", "%27%20and%201", "%20or%201=1", "%20and%201=1", "%20or%201%3d1",
    "%20and%201%3d1", "%27%20or%20%27", "%3bselect", "%3bdrop", "/union/*/select", "%20and%20sleep", "%20or%20sleep",
    "sleep%28", "information_schema", "%20waitfor%20delay", "%27--", "%27%29%20or",
    "%3cscript", "%3csvg", "%3ciframe", "%3cimg", "alert%28", "onerror%3d", "onload%3d",
], PLAIN, ("header",))

family(127, "Always-true condition", "永真条件注入", [
    f"' or {name}{test}" for name in ("id", "uid", "user", "username", "name", "password") for test in ("=", " =", " like ")
] + [
    "' or false", "' or exists", "' or (exists", "' or 2 between", "' or 1 between", "'or userid", "'or username",
    "'or name",
], BLANKS)
family(126, "Column count probing", "探测列数", [f"order by {number}" for number in range(1, 32)], PLAIN,
    ADDRESS_AND_HEADERS)

# In a body a short phrase is not telling; a value's end, or its beginning, makes it so.
family(128, "Always-true condition", "永真条件注入", [
    "='" + blank + operator + blank + "'" for operator in _OPERATORS for blank in ("", " ")
    if (operator, blank) not in (("=", ""), ("and", " "), ("or", " "))
] + [
    f"{word} {one}={one}{end}" for word in ("or", "and") for one in ("1", "2") for end in ("&", "--", "#", "/", ")", "\"")
] + [
    f"{closer} or 1=" for closer in ("'", "\"", ")", "')", "\")")
] + ["or 1=(", "or 1 = 1", "or 1=@", "(3=pi())", "(pi()=pi()", "and (3=pi(", "\\x27union select", "' or 1*--%20&",
    "or 1--&", "or 1#&", "or (1 or 1)", "and (8)=(3)", "'or'1'='1", "' or json", "or json_valid", "unlikely (id)"],
    BLANKS)
family(129, "Column count probing", "探测列数", [
    f"order by {number}{end}" for number in range(2, 32) for end in ("&", " &")
] + ["group by 16/", f" 1/{STAR}!1111"], BLANKS, BODY)
family(130, "Always-true condition", "永真条件注入", [
    "='" + blank + operator + blank + "'&" for operator in _OPERATORS + ["<", ">"] for blank in ("", " ")
] + [
    f"{word} '{digit}{end}" for word in ("or", "and") for digit in _DIGITS for end in ("&", "'=")
    if end == "'=" or digit == "1"
] + ["'or'1'", "'or 1 >", "'or 0>", "'or 1>", "'or'1=", ");iif(", "or a  =", "or x  =", "or 1  =", "or (1=", "';iif(", "or 1# &", "or%201=1", "and%201=1", "'%20or%20", "\"%20or%20", 
    "or \"\"a\"\"=\"\"", "(char(1*,char(", "'or 1=1"],
    BLANKS, BODY)

# ---- XSS ------------------------------------------------------------------------------------------------------------

# What the XSS detector sees, it shall name itself: keyword rules run first and are reported as SQL injection. The
# detector sees "<script>", an event attribute with a blank before it and a value that begins with a letter inside a
# tag, and "javascript:" in an attribute. The families below hold what it does not see: markup without those, and script
# that breaks out of a literal or an attribute.
family(201, "Script tag", "脚本标签", [
    "<script/", "<script\n", "\\x3cscript", "\\u003cscript", "&#60;script", "&#x3c;script",
    "+adw-script", "<%00script", ":script>", "<;script", "<x:script", "<svg:script", "<!--#exec", "<!--#include",
    "<script src", "<script type", "<script language", "<script id", "<script for", "<script xmlns", "<script async", "<script defer", "<script a", "<script x", "<script charset", "<script\\", "<script<", "\"></script", "'></script", "</script ", "</script/",
], BLANKS, EVERYWHERE)
_CALLS = ["alert", "prompt", "confirm"]
family(209, "Script call", "脚本调用", [
    before + call + "(" for call in _CALLS for before in ";{-\'/+(<)|#!&[]^?`.~"
], PLAIN)
family(202, "Script call", "脚本调用", [
    "alert`", "alert&lpar;", "alert&#40", "alert%28", "alert\\u0028", "alert\\x28", "alert.call(", "alert.apply(",
    "alert.bind(", "alert)(", "alert]()", "alert\\`", "alert//(", "alert?.(", "alert.source", "prompt`",
    "prompt&lpar;", "prompt&#40", "prompt%28", "prompt\\u0028", "prompt\\x28", "prompt.call(",
    "prompt)(", "confirm`",
    "confirm&lpar;", "confirm&#40", "confirm%28", "confirm\\u0028", "confirm\\x28", "confirm.call(",
    "confirm)(", "top['",
    "top[\"", "top[/", "self['", "self[\"", "self[/", "window[\"", "window[/", "window[`", "parent['", "parent[\"",
    "parent[/", "this['", "this[\"", "this[/", 
    "globalthis[/", "document.url", "document.baseuri", 
    "document['cookie", "document[", "document.getelement", "document.queryselector", "document.__",
    "document.head", "document.documentelement", "document.title", "document::",
    "eval(unescape", "eval(document", "eval(window", "eval(decode", "eval.call", "eval(this", "eval(/", "eval(a",
    "eval(self", "eval(url", "${eval}", "eval`", "settimeout('", "settimeout(\"", "settimeout(alert", "settimeout`",
    "setinterval('", "setinterval`", "setinterval(code", "new function(",
    "new activexobject", "new function`", "function(\"", "[].constructor", "[].filter", "[].map", "[].sort",
    "].find(", ".constructor(", ".constructor`", ".constructor.constructor", "constructor['", "constructor[",
    "window.location=", "window.location[", "window.location.assign(", "window.location.replace(", "window.name", "location=\"", "location=location", "location=name", "location=j",
    "location.replace(", "location.assign(", "location.href=", "location.href", "location.pathname",
    "location.search", "location=javascript", "throw onerror", "wscript.",
    "msgbox(", "import('//", "$.getscript", "navigator.sendbeacon", "\\u0061lert", "\\x61lert", "aler\\u0074",
    "\\u{61}lert", "al\\x65rt", "\\x61\\x6c\\x65", "&#97;lert", "javascript&", "tostring(30)", "write(url",
    "getscript(", "externalinterface.call", "geturl,", "asfunction:", "alert(';", "alert(document.cookie)&",
    "${alert}", "fromcharcode(4",
], BLANKS, EVERYWHERE)
family(203, "Script address", "脚本地址", [
    "javascript:location", "javascript:'", "javascript:\"", "javascript:`", "javascript:%", "javascript:\\",
    "javascript:(", "javascript:&", "javascript:top", "javascript:self", "javascript:parent", "javascript:this",
    "javascript:new ", "javascript:name", "javascript:a=", "javascript:x=", "javascript:1", "javascript:open(",
    "javascript:qxss", "javascript:cookie", "javascript:url(", "javascript:$", "javascript:write",
    "javascript:setinterval", "javascript:settimeout", "javascript:[", "vbscript:", "livescript:", "jscript:",
    "jscript.encode", "vbscript.encode", "data:text/xml", "data:text/javascript", "data:application/x-",
    "data:application/javascript", "data:text/html;base64", "feed:javascript", "javascript&colon;", "javascript&#58",
    "javascript&#x3a", "java\nscript", "java\tscript", "java\rscript", "jav\tascript", "jav\nascript", "jav\rascript",
    "jav&#", "java&#", "j&#", "&#106;", "&#0000106", "&#x6a", "&#106&", "&#x6a&", "\\x6aavascript", "ja\\vascript",
    "&colon;", "&lpar;", "action=javascript", "formaction='", "formaction=//", "url('javascript", "livescript",
    "view-source:", "src=data:text", "](javascript:",
], PLAIN, EVERYWHERE)
# In JSON a quote has a "\\" before it, which the detector takes for the value.
# A parameter that is nothing but script. In a tag the detector names it, so the parameter's name is part of the phrase.
_ADDRESS_PARAMETERS = ["url", "uri", "u", "redirect", "return", "returnurl", "next", "goto", "to", "link", "target", "dest",
    "page", "q"]
_TEXT_PARAMETERS = ["q", "s", "query", "search", "keyword", "id", "name", "text", "callback"]
family(210, "Script as a parameter", "参数为脚本", [
    name + "=javascript:" + call for name in _ADDRESS_PARAMETERS for call in ("alert", "prompt", "document")
] + [
    name + "=" + call for name in _TEXT_PARAMETERS for call in ("alert(", "confirm(", "prompt(", "eval(", "document.")
] + [
    mark + text for mark in (":\"", ": \"") for text in ("javascript:alert", "alert(", "confirm(", "prompt(", "eval(")
], PLAIN)
family(211, "Script call", "脚本调用", [
    before + call for before in ";{" for call in ("eval(", "document.cookie", "document.location", "document.write(",
    "document.body", "window.location", "location=", "window.open(", "settimeout(", "setinterval(", "function(", "atob(", "import(")
    if (before, call) not in (("+", "location="), ("&", "location="), ("+", "function("), (",", "function("), ("&", "atob("))
] + ["}alert(", ",alert(",  ".prototype.", "(location.hash",  "src=\"jav", "src=\'jav", "href=\"jav", "=\"jav ", "=\"jav\t",
    "=jav\t", "\ta\tv", "a\tvas", "\tasc\tri", "\"\tjavascript:", "javascript\t:", "onload!#", "&<script", 
    "<style type=\"text/javascript", "src=\"data:data", "\"jav&#", "=jav&#", "=java&#", "\"java&#", "href=javas&", "href=javas%", "href=j&#x", "<img%20src=", "<script%",
    "<iframe%20", "<link%20rel", "<script&", "&quot;javascript:", "url(\"javascript", "url('javascript", "url(javascript",
    "xlink:href=\"data:", "=&tab;", "\"&tab;", "j&tab;", "j&newline;", "+adw-p", "\"javascript#", "onscroll =",
     "<iframe/src=", "src=j\t", "href=\"j\t", "action=j\t", "action='j\t", "src=\"j ", "href=\"j ", "href=\"j\n", "data:text/html", "&tab;", "\";document.", "\';document."], PLAIN)
family(212, "Active markup in an address", "地址中的活动标签", [
    "<style*javascript:", "<iframe src=\"http", "<iframe src=\'http", "<iframe src=http", "<iframe width", "<iframe src=\"//",
    "<iframe src=//", "<?xml", "<svg xmlns", "<marquee>", "<iframe<", "<img src=\"http", "<link rel=\"", "<link rel=s", "<set ",
    "%3cscript", ";base64,", "<img src =", "<img src = ", "<base href=\"h", "<base href=h",
], PLAIN, ADDRESS_AND_HEADERS)
family(214, "Dangerous style or markup", "危险样式或标签", [
    "<embed src=\"http", "<embed src=http", "<embed src=\'http", "<embed src=\"/", "<embed src=\"\"", "<object data=\"http",
    "<layer src", "<xml src", "<xml id", "<xss>", "<script<", "';</style", "');}</style", "<svg><script", "<img/src=\"", "<x style=",
    "&tab;a&tab;", "&tab;r&tab;", "&tab;c&tab;", "&tab;s&tab;", "<scr\\", "<scri pt", "src=java ", "]cript>", " cript>", "echo('<scr",
    "<?php echo", "<? echo", "&lt;img*onerror=", "\";</style", "<link rel=\"stylesheet\" href=\"http", "<link rel=import",
    "<link rel=\"import", "data:_", "<embed allowscript", "<a[]", "<iframesrc", "<imgsrc", "<img[", "<%00", "<scr\t", "data:;base64,",
    "data:image/svg+xml;base64", "data:image/svg-xml",
] + [
    name + "=" + quote for name in ("onload", "onerror", "onclick", "onfocus", "onmouseover", "oncut") for quote in "”’“"
], PLAIN)
# A tag whose attributes are divided by "/", an attribute that a quote opens, a value that begins with a symbol.
_EVENTS = ["onload", "onclick", "onblur", "onfocus", "onmouseover", "onerror"]
family(204, "Event attribute", "事件属性", [
    "/" + name + "=" for name in COMMON_EVENTS
] + [
    "=" + quote + blank + name + "=" for name in _EVENTS for quote in "\"\'" for blank in ("", " ")
] + [
    name + "=" + mark for name in ("onload", "onerror")
    for mark in ("(", "`", "\\", "&", "[", "{", ";", "\"(", "\"&", "\"\\", "\"[", "\"<", "\"-", "%", "+", "$", "!")
] + ["\" autofocus", "\' autofocus", "onxxx=", "`onerror=", "]onerror=", "`onload=", "onerror=eval;"], BLANKS)
family(205, "Dangerous style or markup", "危险样式或标签", [
    "expression(alert", "expression(document", "expression(eval", "expression(write", "expression(prompt",
    "expression(confirm", ": expression(", "-moz-binding", "behavior: url", "behaviour:url", "behaviour: url",
    "@import'", "@import \"http", "@import url(http", "@import \"//", "style=x:", "x:url", "ex*pression(alert",
    "/pression(", "expr/", "/ession(", "xss:expr", "<svg/", "<svg\n", "<ilayer", "<vmlframe", "<?import",
    "<?xml-stylesheet", "<!entity", "<!doctype html [", "<listener", "<handler", "<foreignobject", "<details/",
    "<details open", "<body/", "<body\n", "<html/", "xmlns:xss", "xi:include", "type='text/javascript",
    "language=\"javascript", "datasrc=", "accesskey(", "fscommand(", "seeksegmenttime", "<img\n", "<img\t",
      "<img src=\"mocha", "<img src=&", "<img src=j", "<img src=\"j", "<input/",
    "<a/", "<x/", "<d3", "<q/", "<w=", "<video/", "<audio/", "<details/", "<a\n", "<brute", "+adw-", "<svg:", "<x s",
    "<xml id", "<meta charset",
], BLANKS, EVERYWHERE)
family(207, "Active markup in a body", "正文中的活动标签", [
    "<iframe onload", "<iframe/onload", "<iframe src=mhtml", "<iframe src=j", "<iframe src=\"j", "<iframe src='j",
    "<iframe srcdoc", "<iframe src=\"data", "<iframe src=data", "<iframe src=\"vb", "<embed src=\"j", "<embed src=j",
    "<embed src=\"data", "<embed code", "<object data=\"j", "<object data=j", "<object data=\"data",
    "<object data=data", "<object classid", "<meta http-equiv", "<base href=\"j", "<base href=j", "<base href=\"//",
    "<base href=", "<link rel=import", "<link rel=\"import", "<link rel=\"stylesheet\" href=\"j", "<style>@im",
    "<style><", "</style><img", "</style><script", "</title><", "</textarea><", "<table background=\"j",
    "<table background=j", "<td background=\"j", "<object type=\"text/x-scriptlet", "<iframe src=http",
    "<link rel=stylesheet", "<form action=\"j", "<form action=j", "&#x3c;s", "&#60;s", "&#60;i", "&#60;m", "&#60;l",
    "&#60&#", "&#x3c;&#", "&#60;&#", "&#x73;&#x", "&#115;&#99", "&#115&#99", "&#106;&#97", "&#106&#97", "&#x6a;",
    "&#x6a&", "alert*&#40", "alert*&#x28", "prompt*&#x28", "confirm*&#x28", "javas*&#*ript", "%3ciframe", "%3csvg",
], BLANKS, BODY)

# Script and markup that is an attack whatever surrounds it. The plainest forms (an "alert(1)" in <script>, in "onerror" or
# behind "javascript:") are left to the detector; see the test NameScriptsAsScripts.
family(215, "Event attribute", "事件属性", [
    quote + blank + name + "=" for name in ("onload", "onclick", "onblur", "oncut", "onerror", "onmouseover", "onfocus")
    for quote in "\"'" for blank in ("", " ") if (quote + blank + name) not in ("\" onerror", "\" onmouseover", "\"onload")
] + [
    name + "=" + value for name in ("onerror", "onload", "onmouseover")
    for value in ("prompt", "confirm", "eval", "document", "window", "javascript", "this.", "self", "top", "'", "\"javascript", "\"prompt",
    "\"window", "\"document", "\"eval", "\"this", "alert`", "alert(document", "alert(/", "\"alert(1", "\"alert(/", "\"alert(document",
    "\\\"alert(1", "&#", "\"&#")
    if (name, value) != ("onmouseover", "\"confirm")
], BLANKS)
_CALLS = ["alert", "prompt", "confirm"]
family(216, "Script call", "脚本调用", [
    before + call + "(" for call in _CALLS for before in (" ", "=\"\"", "$", "\\", "\n", ";\"", STAR, "%", "\"+", "!", ",\"", "=+")
] + [
    call + "(" + argument for call in _CALLS for argument in ("document.domain", "document.location", "document.url", "string.", "\"xss", "'xss", "/xss", "xss",
    "`", "&", "\\", "1337", "0x", "this", "window", "\"1", "'1", "/1/", "0)", "2)", "3)",
    "9)", "99)", "123", "1);", "1),", "1) ", "1)\"\"", "1)'", "1)//", "1)/", "1)\\", "1))", "1)-", "1)}", "1)+", "1)]", "1)&", "document.cookie);",
    "document.cookie) ", "document.cookie)\"", "document.cookie)'", "document.cookie)>", "document.cookie)/", "document.cookie))", "document[", "[", "(", "{", "&#", "a)", "'hello", "'hack", "'cross", ")")
    if call == "alert" or argument in ("document.domain", "document.location", "\"xss", "/xss", "1);", "1),", "1) ", "1)//", "0)", "123", "1337", "9)", "&", "`")
], BLANKS)
family(217, "Script call", "脚本调用", [
    "<scr<script", "<scr\0", "%3cscript", "%3csvg", "%3cimg", "alert%28", "onerror%3d", "onload%3d", "window['", "document.domain", "document.location", "document.write", "document.body.", "document.vulnerable",
    "document.createelement(", "string.fromcharcode", "fromcharcode(", "eval(atob", "eval(string", "eval(location", "eval(name", "eval('",
    "new xmlhttprequest", "window.open(", "window.onerror", "location.hash", "location='", "onerror=eval", "innerhtml=", "al\\u0065rt",
    "a\\u006cert", "atob(", "unescape(", "write(1)", "document.cookie=", "document.cookie;", "document.cookie+", "+document.cookie",
    "javascript:confirm", "javascript:eval", "javascript:document", "javascript:window", "javascript:javascript:", "javascript:/",
    "javascript://", "&newline;", "background=javascript", "formaction=javascript", "formaction=\"", "xlink:href", "srcdoc=", "href=data:",
    "javascript:alert(document", "javascript:alert('", "javascript:alert(\"", "javascript:alert(/", "javascript:alert(string", "javascript:alert`",
] + [before + "javascript:" + call for before in " ',;(|:`" for call in ("alert", "prompt", "throw", "void")
] + ["?*=javascript:" + call for call in ("alert", "prompt")], BLANKS)
family(218, "Dangerous style or markup", "危险样式或标签", [
    "expression(javascript", ":expression(", "behavior:url", "x:expression", "<math", "<layer", "<bgsound", "<isindex", "<marquee",
    "<keygen", "<applet", "<frameset", "<frame ", "<xml ", "<xss", "<animate", "<event-source", "type=\"text/javascript",
    "dynsrc=", "lowsrc=", "<img/", "<img src=1", "<img src=a ", "<img src='x'", "<img src=# ", "<img src=`", "<x ", "<iframe/",
    "<image", "<embed", "<object", "<meta ", "<base ", "<param ", "<applet", "&ltscript", "&ltimg", "&ltsvg", "<stylesheet", "< script", "< img", "< svg", "<script aaa",
    "<scri pt", "<sc'+", "<*script>prompt", "clsid:", "mhtml:http", "mhtml:", "/_javascript:", "javas&tab", "java&tab", "j&newline", 
    "charset=utf-7", "+adw-", "<listing", "<!attlist", "contenteditable on", "<handler", "<animatetransform", "<discard", "<portal src",
    "<svg>", "<svg ><", "<svg/", "<svg width", "<svg id", "<svg><", "<svg onload=\"", "<svg onload='", "<svg onload=p", "<svg onload=c", "<svg onload=e", "<svg height",
    "<script>*;</script", "<script>\"", "<script>'", "<script>+", "<script>/", "<script>d", "<script>p", "<script>c", "<script>w", "<script>e", "<script>v", "<script>f",
    "&#x3c", "&#x03c", "&#x003c", "&#x0003c", "&#x00003c", "&#x000003c", "&#60", "&#060", "&#0060", "&#x003c;",
], BLANKS)
family(219, "Active markup in an address", "地址中的活动标签", [
    "\"><img", "'><img", "\"><a ", "data:image/svg+xml", "<link rel", "<style>", "<style ", "</title>", "</textarea>",
    "</style>", "<input *=", "<button>", "<table background", "<video>", "<video ", "<audio ", "<iframe>", "<img src=http", "<iframe sandbox", "<input pattern",
    "<img onerror", "<layer",
], BLANKS, ADDRESS_AND_HEADERS)

# ---- the SQL detector -----------------------------------------------------------------------------------------------
# A cut word that begins with a symbol cuts anywhere, so it may end inside a word; the rule word is that word's rest. The
# pair is then found in a text whose comments are gone ("un/**/ion sel/**/ect 1"), and no ordinary text begins with it.
LEADING_WORDS = {
    "cut_number": 12, "word_number": 11,
    "cuts": [before + phrase for before in ("'", ")", "(", "\"", "\t", "`", "/", ";") for phrase in ("union se",
    "union all se", "union distinct se")]
    + [") union se", " union all se", " union distinct se"]
    + [before + "(se" for before in ("=", "(", "|", "'-", " rlike ",
    " like ")]
    + [before + phrase for before in (";", "; ") for phrase in ("drop da", "waitfor d")]
    + ["' waitfor d", ") waitfor d", " waitfor d", " into o", " into d", " load data i"],
    "words": [
        ("lect", "select", "Union query or subquery", "联合查询或子查询注入"),
        ("tabase", "drop database", "Stacked query", "堆叠注入"),
        ("elay", "waitfor delay", "Time-based blind injection", "时间盲注"),
        ("umpfile", "into dumpfile", "Writing a file", "写服务器文件"),
        ("utfile", "into outfile", "Writing a file", "写服务器文件"),
        ("nfile", "load data infile", "Reading a file", "读服务器文件"),
    ],
}
EVENTS = {"number": 31, "english": "HTML event", "chinese": "HTML事件", "names": EVENT_NAMES}

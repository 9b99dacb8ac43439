<?php
// Pages with one fault each, for scanners that follow links and forms: ?page=goods (SQL, by error, by what is found, by time),
// echo (scripts), book (scripts that stay), file, command, xml, fetch, go, head. The book is kept in the folder BOOK names.
ini_set('display_errors', '1');
$q = $_REQUEST['q'] ?? '';
$form = fn($page, $method, $value = '') => "<form action=\"?page=$page\" method=\"$method\"><input type=\"hidden\" name=\"page\" value=\"$page\">"
  . "<input name=\"q\" value=\"$value\"><input type=\"submit\" value=\"$page\"></form>";
$pages = [
  'goods' => function ($q) {
    $database = new PDO(getenv('DATABASE'), 'root', '', [PDO::ATTR_ERRMODE => PDO::ERRMODE_EXCEPTION]);
    try {
      foreach ($database->query("SELECT name, price FROM goods WHERE name = '$q' OR tag = '$q'") as $row) echo "<li>{$row[0]} {$row[1]}</li>";
    } catch (PDOException $error) {
      echo 'Warning: mysqli_query(): ', $error->getMessage();
    }
  },
  'echo' => function ($q) { echo "<p>You looked for $q</p><input value=\"$q\"><script>var q = '$q';</script>"; },
  'book' => function ($q) {
    $book = getenv('BOOK') . '/book.html';
    if ($q !== '') file_put_contents($book, "<p>$q</p>\n", FILE_APPEND | LOCK_EX);
    if (is_file($book)) readfile($book);
  },
  'file' => function ($q) { include $q; },
  'command' => function ($q) { echo '<pre>', shell_exec("echo $q"), '</pre>'; },
  'xml' => function () { echo @simplexml_load_string(file_get_contents('php://input') ?: '<a/>', 'SimpleXMLElement', LIBXML_NOENT | LIBXML_DTDLOAD); },
  'fetch' => function ($q) { echo htmlspecialchars((string)@file_get_contents($q)); },
  'go' => function ($q) { header("Location: $q", true, 302); },
  'head' => function ($q) { @header("X-Said: $q"); echo 'said'; },
];
$page = $_REQUEST['page'] ?? '';
if (!isset($pages[$page])) {
  echo '<html><body>';
  foreach (array_keys($pages) as $name) echo "<a href=\"?page=$name&q=" . ($name === 'go' ? '/' : 'apple') . "\">$name</a>", $form($name, 'get'), $form($name, 'post');
  exit('</body></html>');
}
echo '<html><body>';
$pages[$page]($q);
echo $page === 'book' ? $form('book', 'post') : '', '</body></html>';

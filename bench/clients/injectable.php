<?php
// A page that can be injected into, for trying clients against the firewall. One parameter, "id", taken from the query,
// a form, JSON, a cookie or a header, stands in a query unquoted (?at=number), quoted (text) or as a column (order).
// The environment names the database: DATABASE=sqlite:FILE, or mysql:unix_socket=FILE;dbname=shop.
ini_set('display_errors', '1');
mysqli_report(MYSQLI_REPORT_OFF);
$values = [$_GET, $_POST, json_decode(file_get_contents('php://input'), true), $_COOKIE, ['id' => ($_GET['from'] ?? '') === 'header' ? ($_SERVER['HTTP_USER_AGENT'] ?? null) : null]];
$id = '1';
foreach ($values as $source) if (is_array($source) && isset($source['id'])) $id = (string)$source['id'];
$queries = [
  'number' => "SELECT name, price FROM goods WHERE id = $id",
  'text' => "SELECT name, price FROM goods WHERE name = '$id' OR tag = '$id'",
  'order' => "SELECT name, price FROM goods ORDER BY $id",
];
$query = $queries[$_GET['at'] ?? 'number'] ?? $queries['number'];
try {
  $database = new PDO(getenv('DATABASE'), 'root', '', [PDO::ATTR_ERRMODE => PDO::ERRMODE_EXCEPTION]);
  $rows = $database->query($query)->fetchAll(PDO::FETCH_NUM);
  echo '<html><body><h1>Goods</h1><table>';
  foreach ($rows as $row) echo '<tr><td>', implode('</td><td>', $row), '</td></tr>';
  echo '</table><p>', count($rows), ' found</p></body></html>';
} catch (PDOException $error) {
  http_response_code(500);
  echo 'Database error: ', $error->getMessage();
}
